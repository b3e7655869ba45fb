// What the device fixes.
#ifndef Z55_DEVICE_H
#define Z55_DEVICE_H

inline constexpr char kCardFolder[] = "/tmp/fuse_d";  // where the SD card is mounted
inline constexpr char kMediaFolder[] = "/tmp/fuse_d/DCIM/100MEDIA/";
inline constexpr int kStreamKilobits = 512;  // per second, of the live video

#endif
