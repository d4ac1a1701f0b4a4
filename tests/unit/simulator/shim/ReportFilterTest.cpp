#include <fcntl.h>
#include <gtest/gtest.h>

#include "simulator/shim/ReportFilter.h"

namespace orvane {
namespace {

TEST(ReportFilterTest, DevicesAndAttributesAreReported) {
  for (const char* const path : {"/dev/spidev1.0",
                                 "/dev/i2c-1",
                                 "/dev/null",
                                 "/sys/platform_m1/qspi_prg/value",
                                 "/sys/module/spidev/parameters/bufsiz",
                                 "/sys/devices/platform/soc/i2c-1/name",
                                 "/sys/bus/pci/slots/4/address"}) {
    EXPECT_TRUE(IsReported(path, O_RDONLY)) << path;
  }
}

TEST(ReportFilterTest, FilesOfTheProgramAreReported) {
  for (const char* const path : {"./FlashDevice.bin",
                                 "dumpflash.bin",
                                 "/srv/image.bin",
                                 "/home/user/image.bin",
                                 "/opt/proc/image.bin",
                                 "/library/image.bin",
                                 "proc/self",
                                 ""}) {
    EXPECT_TRUE(IsReported(path, O_RDONLY)) << path;
  }
}

TEST(ReportFilterTest, WhatLibrariesReadIsNotReported) {
  for (const char* const path : {"/proc/self/maps",
                                 "/etc/ld.so.cache",
                                 "/run/udev/data/+i2c:i2c-1",
                                 "/usr/lib/locale/C.utf8/LC_CTYPE",
                                 "/lib/x86_64-linux-gnu/libc.so.6",
                                 "/lib64/ld-linux-x86-64.so.2",
                                 "/bin/sh",
                                 "/sbin/init",
                                 "/sys/devices/platform/soc/i2c-1/uevent",
                                 "/sys/devices/system/cpu/online",
                                 "/sys/fs/cgroup/cgroup.controllers",
                                 "/sys/kernel/mm/transparent_hugepage/enabled",
                                 "/dev/urandom",
                                 "/dev/random",
                                 "/dev/tty"}) {
    EXPECT_FALSE(IsReported(path, O_RDONLY)) << path;
  }
}

TEST(ReportFilterTest, SharedObjectsAreNotReported) {
  EXPECT_FALSE(IsReported("linux-vdso.so.1", O_RDONLY));
  EXPECT_FALSE(IsReported("/opt/lib/liborvane-shim.so", O_RDONLY));
  EXPECT_TRUE(IsReported("image.sof", O_RDONLY));
  EXPECT_TRUE(IsReported("lib.so/image.bin", O_RDONLY));
}

TEST(ReportFilterTest, NamesThatOnlyStartAlikeAreReported) {
  EXPECT_TRUE(IsReported("/dev/tty1", O_RDONLY));
  EXPECT_TRUE(IsReported("/sys/platform_m1/uevents", O_RDONLY));
  EXPECT_TRUE(IsReported("/sys/platform_m1/uevent/value", O_RDONLY));
}

TEST(ReportFilterTest, OpenWithoutAccessToContentsIsNotReported) {
  EXPECT_FALSE(IsReported("/sys/devices/platform", O_PATH));
  EXPECT_FALSE(IsReported("/tmp", O_RDONLY | O_DIRECTORY));
}

}  // namespace
}  // namespace orvane
