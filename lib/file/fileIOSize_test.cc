// Sizes, room on the disk, and what the system can do.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/falloc.h>
#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <string>

#include "fileIO.h"
#include "fileIOTestInt.h"
#include "systemCalls.h"
#include "testhost.h"

namespace {

using fileiotest::kPanic;
using fileiotest::kReadWrite;
using fileiotest::OpenDescriptors;

class FileIOSize : public fileiotest::FileIOHost {
 protected:
  // Makes a file system of a type and mounts it at "/t/small".
  static void MountImage(const std::string &type) {
    std::string output;
    ASSERT_EQ(testhost::Run("truncate --size=16M /t/image && /usr/sbin/mkfs." + type +
                                " -q /t/image && mount -o loop /t/image /t/small",
                            &output),
              0)
        << output;
  }
};
class FileIOSizeUser : public fileiotest::FileIOUserHost {};

TEST_F(FileIOSize, SizeIsTheFiles) {
  Open("/t/file", kReadWrite);
  EXPECT_EQ(FileIO_GetSize(&file_), 7);
  EXPECT_EQ(FileIO_GetSizeByPath("/t/file"), 7);
  EXPECT_EQ(FileIO_StatSize("/t/file"), 7);
  ASSERT_EQ(ftruncate(file_.posix, 0x300000001), 0);
  EXPECT_EQ(FileIO_GetSize(&file_), 0x300000001);
  EXPECT_EQ(FileIO_GetSizeByPath("/t/file"), 0x300000001);
  EXPECT_EQ(FileIO_StatSize("/t/file"), 0x300000001);
}

TEST_F(FileIOSize, SizeByPathFollowsLinks) {
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  EXPECT_EQ(FileIO_GetSizeByPath("/t/link"), 7);
  EXPECT_EQ(FileIO_StatSize("/t/link"), 7);
}

TEST_F(FileIOSize, FailuresAreMinusOneWithErrno) {
  const long before = OpenDescriptors();
  EXPECT_FAILS(-1, EBADF, FileIO_GetSize(&file_));
  EXPECT_FAILS(-1, EBADF, FileIO_GetAllocatedSize(&file_));
  EXPECT_FAILS(-1, EBADF, FileIO_GetModTime(&file_));
  EXPECT_FAILS(-1, ENOENT, FileIO_GetSizeByPath("/t/missing"));
  EXPECT_FAILS(-1, ENOENT, FileIO_StatSize("/t/missing"));
  EXPECT_FAILS(-1, ENOENT, FileIO_GetSizeByPath(""));
  EXPECT_FAILS(-1, ENOENT, FileIO_StatSize(""));
  EXPECT_FAILS(-1, EFAULT, FileIO_GetSizeByPath(nullptr));
  EXPECT_FAILS(-1, EFAULT, FileIO_StatSize(nullptr));
  EXPECT_EQ(FileIO_GetSizeByPath("/t/file"), 7);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FileIOSizeUser, StatNeedsNoPermissionToRead) {
  EXPECT_FAILS(-1, EACCES, FileIO_GetSizeByPath("/t/secret"));
  EXPECT_EQ(FileIO_StatSize("/t/secret"), 7);
  EXPECT_EQ(FileIO_GetSizeByPath("/t/file"), 7);
}

TEST_F(FileIOSize, AllocatedSizeIsInBlocksOf512) {
  MountSmall();
  Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
  EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 0);
  ASSERT_EQ(FileIO_Write(&file_, "x", 1, nullptr), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 4096);
  ASSERT_TRUE(FileIO_Truncate(&file_, 1000000));
  EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 4096);
}

TEST_F(FileIOSize, ModTimeIsInSeconds) {
  Open("/t/file", FILEIO_ACCESS_READ);
  for (const time_t time : {time_t{1234567890}, time_t{5000000000}}) {
    const utimbuf times = {7, time};
    ASSERT_EQ(utime("/t/file", &times), 0);
    EXPECT_EQ(FileIO_GetModTime(&file_), time);
  }
}

TEST_F(FileIOSize, TruncateCutsAndExtends) {
  Open("/t/file", kReadWrite);
  EXPECT_TRUE(FileIO_Truncate(&file_, 3));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "con");
  EXPECT_TRUE(FileIO_Truncate(&file_, 5));
  EXPECT_EQ(testhost::ReadFile("/t/file"), std::string("con\0\0", 5));
  EXPECT_TRUE(FileIO_Truncate(&file_, 0x100000000));
  EXPECT_EQ(FileIO_GetSize(&file_), 0x100000000);
}

TEST_F(FileIOSize, TruncateThatFailsIsFalse) {
  Open("/t/file", FILEIO_ACCESS_READ);
  EXPECT_FAILS(false, EINVAL, FileIO_Truncate(&file_, 3));
  EXPECT_FALSE(FileIO_Close(&file_));
  EXPECT_FAILS(false, EBADF, FileIO_Truncate(&file_, 3));
  Open("/t/file", FILEIO_ACCESS_WRITE);
  EXPECT_FAILS(false, EINVAL, FileIO_Truncate(&file_, std::numeric_limits<uint64_t>::max()));
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{1000, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_FAILS(false, EFBIG, FileIO_Truncate(&file_, 1001));
  EXPECT_EQ(testhost::ReadFile("/t/file"), "content");
}

TEST_F(FileIOSize, SyncReachesTheDisk) {
  Open("/t/file", kReadWrite);
  testhost::SystemCalls calls({SYS_fsync});
  EXPECT_EQ(FileIO_Sync(&file_), 0);
  EXPECT_EQ(calls.LastArguments(SYS_fsync)[0], static_cast<uint64_t>(file_.posix));
  calls.Fail(SYS_fsync, EIO);
  EXPECT_FAILS(-1, EIO, FileIO_Sync(&file_));
}

// ---- Room

TEST_F(FileIOSize, PreallocateTakesRoomAndKeepsTheSize) {
  for (const char *type : {"ext4", "tmpfs"}) {
    if (std::string(type) == "ext4") {
      MountImage(type);
    } else {
      ASSERT_EQ(mount("none", "/t/small", "tmpfs", 0, "size=1M"), 0);
    }
    Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
    ASSERT_EQ(FileIO_Write(&file_, "x", 1, nullptr), FILEIO_SUCCESS);
    ASSERT_EQ(FileIO_Sync(&file_), 0);
    EXPECT_TRUE(FileIO_Preallocate(&file_, 65536)) << type;
    EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 65536) << type;
    EXPECT_EQ(FileIO_GetSize(&file_), 1) << type;
    EXPECT_FALSE(FileIO_Close(&file_));
  }
}

TEST_F(FileIOSize, PreallocateAsksForWhatIsNotThereYet) {
  MountSmall();
  Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
  ASSERT_EQ(FileIO_Write(&file_, std::string(5000, 'x').data(), 5000, nullptr), FILEIO_SUCCESS);
  const testhost::SystemCalls calls({SYS_fallocate});
  EXPECT_TRUE(FileIO_Preallocate(&file_, 20000));
  const auto arguments = calls.LastArguments(SYS_fallocate);
  EXPECT_EQ(arguments[0], static_cast<uint64_t>(file_.posix));
  EXPECT_EQ(arguments[1], static_cast<uint64_t>(FALLOC_FL_KEEP_SIZE));
  EXPECT_EQ(arguments[2], 8192U);
  EXPECT_EQ(arguments[3], 20000U - 8192U);
}

TEST_F(FileIOSize, PreallocateOfNoMoreThanThereIsIsInvalid) {
  MountSmall();
  Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
  ASSERT_EQ(FileIO_Write(&file_, "x", 1, nullptr), FILEIO_SUCCESS);
  const testhost::SystemCalls calls({SYS_fallocate});
  EXPECT_FAILS(false, EINVAL, FileIO_Preallocate(&file_, 4095));
  EXPECT_FAILS(false, EINVAL, FileIO_Preallocate(&file_, 0));
  EXPECT_EQ(calls.Count(SYS_fallocate), 0U);
  EXPECT_FAILS(false, EINVAL, FileIO_Preallocate(&file_, 4096));
  EXPECT_EQ(calls.Count(SYS_fallocate), 1U);
  EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 4096);
}

TEST_F(FileIOSize, PreallocateThatFailsIsFalse) {
  EXPECT_FAILS(false, EBADF, FileIO_Preallocate(&file_, 4096));
  MountSmall();
  Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
  EXPECT_FAILS(false, ENOSPC, FileIO_Preallocate(&file_, 1 << 20));
  EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 0);
  EXPECT_FAILS(false, EINVAL, FileIO_Preallocate(&file_, std::numeric_limits<uint64_t>::max()));
  ASSERT_EQ(FileIO_Write(&file_, "x", 1, nullptr), FILEIO_SUCCESS);
  EXPECT_FAILS(false, EFBIG, FileIO_Preallocate(&file_, uint64_t{1} << 63));
  EXPECT_FAILS(false, EINVAL, FileIO_Preallocate(&file_, (uint64_t{1} << 63) + 4096));
  EXPECT_FAILS(false, ENOSPC, FileIO_Preallocate(&file_, std::numeric_limits<int64_t>::max()));
  EXPECT_EQ(FileIO_GetAllocatedSize(&file_), 4096);
  EXPECT_FALSE(FileIO_Close(&file_));
  Open("/t/file", FILEIO_ACCESS_READ);
  EXPECT_FAILS(false, EBADF, FileIO_Preallocate(&file_, 1 << 20));
}

TEST_F(FileIOSize, PreallocateWhereTheFileSystemDoesNotKnowHow) {
  MountImage("ext2");
  Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
  EXPECT_FAILS(false, EOPNOTSUPP, FileIO_Preallocate(&file_, 65536));
}

struct KernelRow {
  const char *release;
  bool supported;
};

void PrintTo(const KernelRow &row, std::ostream *stream) {
  *stream << row.release;
}

class FileIOPreallocateKernel : public ::testing::TestWithParam<KernelRow> {};

TEST_P(FileIOPreallocateKernel, IsJudgedByEachNumberOfItsVersion) {
  testhost::Host host;
  host.Release(GetParam().release).File("/t/file", "").Enter();
  testhost::SystemCalls calls({SYS_statfs});
  calls.AnswerStatfs(EXT4_SUPER_MAGIC);
  EXPECT_EQ(FileIO_SupportsPreallocate("/t/file", false), GetParam().supported);
  EXPECT_EQ(calls.Count(SYS_statfs), 0U);
  EXPECT_EQ(FileIO_SupportsPreallocate("/t/file", true), GetParam().supported);
  EXPECT_EQ(calls.Count(SYS_statfs), GetParam().supported ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(Kernels, FileIOPreallocateKernel,
                         ::testing::Values(KernelRow{"2.6.23", true}, KernelRow{"2.6.32.7", true},
                                           KernelRow{"2.7.23-1", true}, KernelRow{"3.6.23", true},
                                           KernelRow{"6.18.44", true}, KernelRow{"2.6.22.19", false},
                                           KernelRow{"2.6", false}, KernelRow{"2.5.75", false},
                                           KernelRow{"1.9.30", false}, KernelRow{"3.0.0", false},
                                           KernelRow{"3.2.0-4-amd64", false}, KernelRow{"4.5.30", false},
                                           KernelRow{"6.1.0-56-amd64", false}));

class FileIOPreallocateSystem : public FileIOSize {
 protected:
  void Describe(testhost::Host &host) override { host.Release("2.6.32"); }
};

TEST_F(FileIOPreallocateSystem, IsAskedOfTheKernel) {
  ASSERT_EQ(symlink("/t/small", "/t/link"), 0);
  MountSmall();
  testhost::WriteFile("/t/small/file", "");
  EXPECT_FALSE(FileIO_SupportsPreallocate("/t/small/file", true));
  EXPECT_TRUE(FileIO_SupportsPreallocate("/t/small/file", false));
  MountImage("ext4");
  testhost::WriteFile("/t/small/file", "");
  EXPECT_TRUE(FileIO_SupportsPreallocate("/t/small/file", true));
  EXPECT_TRUE(FileIO_SupportsPreallocate("/t/link/", true));
  ASSERT_EQ(chdir("/t/small"), 0);
  EXPECT_TRUE(FileIO_SupportsPreallocate("file", true));
  EXPECT_TRUE(FileIO_SupportsPreallocate("", true));
  EXPECT_TRUE(FileIO_SupportsPreallocate(nullptr, true));
  EXPECT_FALSE(FileIO_SupportsPreallocate("missing", true));
  EXPECT_TRUE(FileIO_SupportsPreallocate("missing", false));
}

TEST_F(FileIOPreallocateSystem, OthersDoNot) {
  testhost::SystemCalls calls({SYS_statfs});
  for (const uint32_t type : std::initializer_list<uint32_t>{NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, TMPFS_MAGIC,
                                                             XFS_SUPER_MAGIC, 0, 0xef52}) {
    calls.AnswerStatfs(type);
    EXPECT_FALSE(FileIO_SupportsPreallocate("/t/file", true)) << type;
  }
  calls.Fail(SYS_statfs, EIO);
  EXPECT_FALSE(FileIO_SupportsPreallocate("/t/file", true));
  calls.AnswerStatfs(0xef53);
  EXPECT_TRUE(FileIO_SupportsPreallocate("/t/file", true));
}

TEST_F(FileIOPreallocateSystem, NeedsAFullPath) {
  ASSERT_EQ(mkdir("/t/gone", 0700), 0);
  ASSERT_EQ(chdir("/t/gone"), 0);
  ASSERT_EQ(rmdir("/t/gone"), 0);
  testhost::SystemCalls calls({SYS_statfs});
  calls.AnswerStatfs(EXT4_SUPER_MAGIC);
  EXPECT_FALSE(FileIO_SupportsPreallocate("file", true));
  EXPECT_EQ(calls.Count(SYS_statfs), 0U);
}

TEST_F(FileIOSize, SupportedSizeIsWhereASeekArrives) {
  MountImage("ext4");
  Open("/t/small/file", kReadWrite, FILEIO_OPEN_CREATE);
  EXPECT_EQ(FileIO_Seek(&file_, 5, FILEIO_SEEK_BEGIN), 5);
  EXPECT_TRUE(FileIO_SupportsFileSize(&file_, 0));
  EXPECT_TRUE(FileIO_SupportsFileSize(&file_, 0x100000000));
  // The most is some 16 TiB, or 4 TiB with small blocks.
  EXPECT_TRUE(FileIO_SupportsFileSize(&file_, uint64_t{1} << 41));
  EXPECT_FALSE(FileIO_SupportsFileSize(&file_, uint64_t{1} << 50));
  EXPECT_FALSE(FileIO_SupportsFileSize(&file_, std::numeric_limits<uint64_t>::max()));
  EXPECT_FALSE(FileIO_SupportsFileSize(&file_, std::numeric_limits<uint64_t>::max() - 4));
  EXPECT_EQ(FileIO_Seek(&file_, 0, FILEIO_SEEK_CURRENT), 5);
  EXPECT_EQ(FileIO_GetSize(&file_), 0);
}

TEST_F(FileIOSize, SizeWhereASeekArrivesElsewhereIsNotSupported) {
  Open("/t/file", FILEIO_ACCESS_READ);
  testhost::SystemCalls calls({SYS_lseek});
  const auto posix = static_cast<uint32_t>(file_.posix);
  calls.Return(SYS_lseek, 4, {.from = 1, .count = 1, .first = posix});
  EXPECT_FALSE(FileIO_SupportsFileSize(&file_, 5));
  EXPECT_TRUE(FileIO_SupportsFileSize(&file_, 5));
}

TEST_F(FileIOSize, FileWithoutAPositionIsNotMoved) {
  Open("/t/file", FILEIO_ACCESS_READ);
  testhost::SystemCalls calls({SYS_lseek});
  calls.Fail(SYS_lseek, ESPIPE, {.count = 1});
  EXPECT_FAILS(false, ESPIPE, FileIO_SupportsFileSize(&file_, 5));
  EXPECT_EQ(calls.Count(SYS_lseek), 1U);
}

TEST_F(FileIOSize, PipeSupportsNoSize) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  FileIO_AttachDescriptor(&file_, ends[0], O_RDONLY);
  EXPECT_FALSE(FileIO_SupportsFileSize(&file_, 0));
  EXPECT_FALSE(FileIO_SupportsFileSize(&file_, std::numeric_limits<uint64_t>::max()));
  close(ends[1]);
}

TEST_F(FileIOSize, PositionThatIsLostEndsTheProcess) {
  Open("/t/file", FILEIO_ACCESS_READ);
  testhost::SystemCalls calls({SYS_lseek});
  calls.Fail(SYS_lseek, EIO, {.from = 2, .first = static_cast<uint32_t>(file_.posix)});
  EXPECT_EXIT(FileIO_SupportsFileSize(&file_, 5), kPanic,
              "NOT_IMPLEMENTED lib/file/fileIOSize\\.cc:[0-9]+\n");
}

TEST_F(FileIOSize, SectorsAreOf512Bytes) {
  Open("/t/file", FILEIO_ACCESS_READ);
  uint32_t size = 0;
  EXPECT_TRUE(FileIO_GetSectorSize(&file_, &size));
  EXPECT_EQ(size, 512U);
}

TEST_F(FileIOSizeUser, AccessTestsEachBit) {
  EXPECT_EQ(FileIO_Access("/t/secret", FILEIO_TEST_EXISTS), FILEIO_SUCCESS);
  EXPECT_FAILS(FILEIO_ERROR, EACCES, FileIO_Access("/t/secret", FILEIO_TEST_READ));
  EXPECT_EQ(FileIO_Access("/t/file", FILEIO_TEST_READ), FILEIO_SUCCESS);
  EXPECT_FAILS(FILEIO_ERROR, EACCES, FileIO_Access("/t/file", FILEIO_TEST_WRITE));
  EXPECT_FAILS(FILEIO_ERROR, EACCES, FileIO_Access("/t/file", FILEIO_TEST_READ | FILEIO_TEST_WRITE));
  EXPECT_FAILS(FILEIO_ERROR, EACCES, FileIO_Access("/t/file", FILEIO_TEST_EXECUTE));
  EXPECT_FAILS(FILEIO_ERROR, EACCES, FileIO_Access("/t/file", FILEIO_TEST_EXECUTE | FILEIO_TEST_EXISTS));
  EXPECT_EQ(FileIO_Access("/t/program", FILEIO_TEST_READ | FILEIO_TEST_EXECUTE), FILEIO_SUCCESS);
  EXPECT_EQ(FileIO_Access("/t/unreadable", FILEIO_TEST_EXECUTE), FILEIO_SUCCESS);
  EXPECT_FAILS(FILEIO_ERROR, EACCES, FileIO_Access("/t/unreadable", FILEIO_TEST_READ | FILEIO_TEST_EXECUTE));
  EXPECT_FAILS(FILEIO_ERROR, ENOENT, FileIO_Access("/t/missing", FILEIO_TEST_EXISTS));
  EXPECT_FAILS(FILEIO_ERROR, EFAULT, FileIO_Access(nullptr, FILEIO_TEST_EXISTS));
}

TEST_F(FileIOSize, NullFilesEndTheProcess) {
  const char *const assertion = "ASSERT lib/file/fileIOSize\\.cc:[0-9]+\n";
  uint32_t size;
  EXPECT_EXIT(FileIO_GetSize(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_GetAllocatedSize(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_GetModTime(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Truncate(nullptr, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_Sync(nullptr), kPanic, assertion);
  EXPECT_EXIT(FileIO_Preallocate(nullptr, 0), kPanic, assertion);
  EXPECT_EXIT(FileIO_GetSectorSize(nullptr, &size), kPanic, assertion);
  EXPECT_EXIT(FileIO_SupportsFileSize(nullptr, 0), kPanic, "ASSERT lib/file/fileIO\\.cc:[0-9]+\n");
}

}  // namespace
