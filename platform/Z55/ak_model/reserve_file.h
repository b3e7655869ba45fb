// The 102,400,000 bytes on the SD card that are kept free for an upgrade's download: a file of zeros, deleted
// when an upgrade is requested. Any thread.
//
//   missing --dummyFileCreator--> filling --dd has succeeded--> stands --deleteDummyFile--> lent
//      ^------------------ dd has failed --------|
//   lent --restore_reserve--> filling; else it stays lent until the agent's end: the space is the download's,
//   and whoever makes the reserve, or has begun to, leaves none behind.
#ifndef Z55_AK_MODEL_RESERVE_FILE_H
#define Z55_AK_MODEL_RESERVE_FILE_H

// Makes the reserve file, on a mounted card only, whole or not at all. Returns 0, or -1 when it exists, is
// lent or could not be filled. Blocks while dd writes, for ten minutes at most.
[[nodiscard]] int dummyFileCreator();

// Deletes the reserve file, so that an upgrade has its space. Returns 0, or -1 when it is missing or cannot
// be deleted.
[[nodiscard]] int deleteDummyFile();

// The same as dummyFileCreator where the upgrade that it was lent to does not come or the card is a new one.
[[nodiscard]] int restore_reserve();

#endif
