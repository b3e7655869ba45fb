// The configuration's folder on a file system that takes no writing, for as long as this lives: what it holds
// can be read, what is to be changed cannot. For tests in a device view, whose mounts are their own.
#ifndef TESTS_UNIT_SUPPORT_READ_ONLY_CONF_H
#define TESTS_UNIT_SUPPORT_READ_ONLY_CONF_H

#include <gtest/gtest.h>
#include <sys/mount.h>

class ReadOnlyConf {
  public:
    ReadOnlyConf() {
        EXPECT_EQ(mount(kFolder, kFolder, nullptr, MS_BIND, nullptr), 0);
        EXPECT_EQ(mount(nullptr, kFolder, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    }
    ~ReadOnlyConf() {
        EXPECT_EQ(umount2(kFolder, MNT_DETACH), 0);
    }
    ReadOnlyConf(const ReadOnlyConf &) = delete;
    ReadOnlyConf &operator=(const ReadOnlyConf &) = delete;

  private:
    static constexpr char kFolder[] = "/tmp/working";
};

#endif
