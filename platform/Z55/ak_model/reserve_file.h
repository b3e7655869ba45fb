// The 102,400,000 bytes on the SD card that are kept free for an upgrade's download: a file of zeros, deleted
// when an upgrade is requested. Any thread.
#ifndef Z55_AK_MODEL_RESERVE_FILE_H
#define Z55_AK_MODEL_RESERVE_FILE_H

// Makes the reserve file. Returns 0, or -1 when it exists or dd failed. Blocks while dd writes.
int dummyFileCreator();

// Deletes the reserve file. Returns 0, or -1 when it is missing or cannot be deleted.
int deleteDummyFile();

#endif
