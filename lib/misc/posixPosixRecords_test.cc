#include <cstring>

#include "owned.h"
#include "posixPosix.h"
#include "posixPosixTestInt.h"

namespace {

using posixtest::kNotLatin1;

constexpr char kPasswd[] =
    "root:x:0:0:root:/root:/bin/sh\n"
    "jos\xE9:pw\xE9:1234:2345:Jos\xE9 N\xFA\xF1"
    "ez:/home/jos\xE9:/bin/s\xE8\n"
    "plain:x:1500:1500::/home/plain:\n";
constexpr char kGroup[] =
    "root:x:0:\n"
    "caf\xE9:pw\xE9:2345:jos\xE9,plain,ren\xE9\n"
    "empty::3456:\n"
    "more:x:4567:jos\xE9\n";
constexpr char kMtab[] =
    "/dev/sda1 / ext4 rw,relatime 1 2\n"
    "//host/caf\xE9 /mnt/caf\xE9\\040bar cifs user=jos\xE9 0 0\n";

void AddRecords(testhost::Host *host) {
  host->File("/etc/nsswitch.conf", "passwd: files\ngroup: files\ninitgroups: files\n");
  host->File("/etc/passwd", kPasswd).File("/etc/group", kGroup);
  host->Remove("/etc/mtab");
}

// With an /etc/mtab of its own, which is a link on a real host.
class PosixRecords : public posixtest::PosixHost {
 protected:
  void SetUp() override {
    PosixHost::SetUp();
    testhost::WriteFile("/etc/mtab", kMtab);
  }
  void Describe(testhost::Host *host) override { AddRecords(host); }
};
class PosixRecordsLatin1 : public PosixRecords {
 protected:
  void SetUp() override {
    posixtest::UseLatin1();
    PosixRecords::SetUp();
  }
};

struct MountTableCloser {
  void operator()(FILE *stream) const { endmntent(stream); }
};
using OwnedMountTable = std::unique_ptr<FILE, MountTableCloser>;

OwnedMountTable OpenMtab() {
  OwnedMountTable table(Posix_Setmntent("/etc/mtab", "r"));
  EXPECT_NE(table, nullptr);
  return table;
}

void ExpectJose(const passwd *user) {
  ASSERT_NE(user, nullptr);
  EXPECT_STREQ(user->pw_name, "jos\u00E9");
  EXPECT_STREQ(user->pw_passwd, "pw\u00E9");
  EXPECT_EQ(user->pw_uid, 1234U);
  EXPECT_EQ(user->pw_gid, 2345U);
  EXPECT_STREQ(user->pw_gecos, "Jos\u00E9 N\u00FA\u00F1ez");
  EXPECT_STREQ(user->pw_dir, "/home/jos\u00E9");
  EXPECT_STREQ(user->pw_shell, "/bin/s\u00E8");
}

void ExpectCafe(const group *group) {
  ASSERT_NE(group, nullptr);
  EXPECT_STREQ(group->gr_name, NAME);
  EXPECT_STREQ(group->gr_passwd, "pw\u00E9");
  EXPECT_EQ(group->gr_gid, 2345U);
  EXPECT_STREQ(group->gr_mem[0], "jos\u00E9");
  EXPECT_STREQ(group->gr_mem[1], "plain");
  EXPECT_STREQ(group->gr_mem[2], "ren\u00E9");
  EXPECT_EQ(group->gr_mem[3], nullptr);
}

void ExpectCafe(const mntent *mount) {
  ASSERT_NE(mount, nullptr);
  EXPECT_STREQ(mount->mnt_fsname, "//host/" NAME);
  EXPECT_STREQ(mount->mnt_dir, "/mnt/" NAME " bar");
  EXPECT_STREQ(mount->mnt_type, "cifs");
  EXPECT_STREQ(mount->mnt_opts, "user=jos\u00E9");
  EXPECT_EQ(mount->mnt_freq, 0);
  EXPECT_EQ(mount->mnt_passno, 0);
}

TEST_F(PosixRecordsLatin1, UsersAreConverted) {
  ExpectJose(Posix_Getpwnam("jos\u00E9"));
  ExpectJose(Posix_Getpwuid(1234));
  const passwd *first = Posix_Getpwent();
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first->pw_name, "root");
  ExpectJose(Posix_Getpwent());
  EXPECT_STREQ(Posix_Getpwent()->pw_shell, "");
  EXPECT_EQ(Posix_Getpwent(), nullptr);
  endpwent();
}

TEST_F(PosixRecordsLatin1, GroupsAreConvertedWithTheirMembers) {
  ExpectCafe(Posix_Getgrnam(NAME));
  const group *empty = Posix_Getgrnam("empty");
  ASSERT_NE(empty, nullptr);
  EXPECT_STREQ(empty->gr_passwd, "");
  EXPECT_EQ(empty->gr_mem[0], nullptr);
}

TEST_F(PosixRecordsLatin1, MountsAreConverted) {
  const OwnedMountTable table = OpenMtab();
  const mntent *root = Posix_Getmntent(table.get());
  ASSERT_NE(root, nullptr);
  EXPECT_STREQ(root->mnt_opts, "rw,relatime");
  EXPECT_EQ(root->mnt_freq, 1);
  EXPECT_EQ(root->mnt_passno, 2);
  ExpectCafe(Posix_Getmntent(table.get()));
  EXPECT_EQ(Posix_Getmntent(table.get()), nullptr);
}

TEST_F(PosixRecordsLatin1, TheTablesNameIsConverted) {
  testhost::WriteFile("/t/new" LATIN1_NAME, kMtab);
  const OwnedMountTable table(Posix_Setmntent("/t/new" NAME, "r"));
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(Posix_Getmntent(table.get())->mnt_dir, "/");
  OwnedMountTable added(Posix_Setmntent("/t/new" NAME, "a"));
  ASSERT_NE(added, nullptr);
  EXPECT_EQ(fputs("#", added.get()), 1);
  added.reset();
  EXPECT_EQ(testhost::ReadFile("/t/new" LATIN1_NAME), kMtab + std::string("#"));
}

// Each kind has one record.
TEST_F(PosixRecords, TheNextPlainCallTakesTheRecord) {
  const passwd *first = Posix_Getpwnam("root");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Posix_Getpwuid(1500), first);
  EXPECT_STREQ(first->pw_name, "plain");
  // Even one that was given a string of the record itself.
  EXPECT_EQ(Posix_Getpwnam(first->pw_name), first);
  EXPECT_STREQ(first->pw_name, "plain");
  const group *group = Posix_Getgrnam("empty");
  ASSERT_NE(group, nullptr);
  EXPECT_STREQ(first->pw_dir, "/home/plain");
  EXPECT_EQ(Posix_Getpwnam("nobody-here"), nullptr);
  EXPECT_EQ(first->pw_name, nullptr);
  EXPECT_STREQ(group->gr_name, "empty");
}

TEST_F(PosixRecords, ARecordThatIsNoTextIsENOMEM) {
  EXPECT_FAILS(nullptr, ENOMEM, Posix_Getpwuid(1234));
  char buffer[1000];
  passwd user;
  passwd *found = &user;
  EXPECT_FAILS(ENOMEM, ENOMEM, Posix_Getpwuid_r(1234, &user, buffer, sizeof buffer, &found));
  EXPECT_EQ(found, nullptr);
  const OwnedMountTable table = OpenMtab();
  EXPECT_NE(Posix_Getmntent(table.get()), nullptr);
  EXPECT_FAILS(nullptr, ENOMEM, Posix_Getmntent(table.get()));
  rewind(table.get());
  mntent mount;
  EXPECT_NE(Posix_Getmntent_r(table.get(), &mount, buffer, sizeof buffer), nullptr);
  EXPECT_FAILS(nullptr, ENOMEM, Posix_Getmntent_r(table.get(), &mount, buffer, sizeof buffer));
}

TEST_F(PosixRecords, OneMemberThatIsNoTextIsENOMEM) {
  EXPECT_FAILS(nullptr, ENOMEM, Posix_Getgrnam("more"));
  char buffer[1000];
  group group;
  ::group *found = &group;
  EXPECT_FAILS(ENOMEM, ENOMEM, Posix_Getgrnam_r("more", &group, buffer, sizeof buffer, &found));
  EXPECT_EQ(found, nullptr);
}

TEST_F(PosixRecords, NullNamesAreAnsweredWithEFAULT) {
  char buffer[1000];
  passwd user;
  passwd *foundUser = &user;
  group group;
  ::group *foundGroup = &group;
  EXPECT_FAILS(nullptr, EFAULT, Posix_Getpwnam(nullptr));
  EXPECT_FAILS(nullptr, EFAULT, Posix_Getgrnam(nullptr));
  EXPECT_FAILS(EFAULT, EFAULT, Posix_Getpwnam_r(nullptr, &user, buffer, sizeof buffer, &foundUser));
  EXPECT_EQ(foundUser, nullptr);
  EXPECT_FAILS(EFAULT, EFAULT, Posix_Getgrnam_r(nullptr, &group, buffer, sizeof buffer, &foundGroup));
  EXPECT_EQ(foundGroup, nullptr);
#ifndef __SANITIZE_ADDRESS__  // whose fopen reads the path itself
  EXPECT_FAILS(nullptr, EFAULT, Posix_Setmntent(nullptr, "r"));
#endif
}

TEST_F(PosixRecords, AnUnknownNameIsNoFailure) {
  char buffer[1000];
  passwd user;
  passwd *found = &user;
  EXPECT_EQ(Posix_Getpwnam_r("nobody-here", &user, buffer, sizeof buffer, &found), 0);
  EXPECT_EQ(found, nullptr);
  group group;
  ::group *foundGroup = &group;
  EXPECT_EQ(Posix_Getgrnam_r("nobody-here", &group, buffer, sizeof buffer, &foundGroup), 0);
  EXPECT_EQ(foundGroup, nullptr);
}

// Calls a reentrant form with every size of buffer up to one that is enough, and returns that size. With a
// smaller one it gives ERANGE and writes nothing behind the buffer.
template <typename Get>
size_t SmallestBuffer(char *buffer, size_t limit, const Get &get) {
  for (size_t size = 0; size < limit; size++) {
    memset(buffer, '#', limit);
    errno = 0;
    const int error = get(size);
    EXPECT_EQ(std::string(buffer + size, limit - size), std::string(limit - size, '#')) << size;
    if (error == 0) {
      return size;
    }
    EXPECT_EQ(error, ERANGE);
    EXPECT_EQ(errno, ERANGE);
  }
  return limit;
}

bool IsWithin(const char *text, const char *buffer, size_t size) {
  return text >= buffer && text + strlen(text) < buffer + size;
}

TEST_F(PosixRecordsLatin1, ReentrantUsersLieInTheCallersBuffer) {
  char buffer[1000];
  passwd user;
  passwd *found = nullptr;
  const size_t byName = SmallestBuffer(buffer, sizeof buffer, [&](size_t size) {
    return Posix_Getpwnam_r("jos\u00E9", &user, buffer, size, &found);
  });
  EXPECT_EQ(found, &user);
  ExpectJose(&user);
  // One after the other, and no room between.
  const char *next = buffer;
  for (const char *text : {user.pw_name, user.pw_passwd, user.pw_gecos, user.pw_dir, user.pw_shell}) {
    EXPECT_EQ(text, next);
    next += strlen(text) + 1;
  }
  EXPECT_LE(next, buffer + byName);
  const size_t byNumber = SmallestBuffer(buffer, sizeof buffer, [&](size_t size) {
    return Posix_Getpwuid_r(1234, &user, buffer, size, &found);
  });
  EXPECT_EQ(byNumber, byName);
  ExpectJose(found);
}

TEST_F(PosixRecordsLatin1, ReentrantGroupsLieInTheCallersBuffer) {
  char space[1000];
  for (size_t offset = 0; offset < sizeof(char *); offset++) {
    char *buffer = space + offset;
    group group;
    ::group *found = nullptr;
    const size_t smallest = SmallestBuffer(buffer, sizeof space - offset, [&](size_t size) {
      return Posix_Getgrnam_r(NAME, &group, buffer, size, &found);
    });
    EXPECT_EQ(found, &group);
    ExpectCafe(&group);
    EXPECT_TRUE(IsWithin(group.gr_name, buffer, smallest));
    EXPECT_TRUE(IsWithin(group.gr_mem[2], buffer, smallest));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(group.gr_mem) % alignof(char *), 0U);
  }
}

// Texts twice as long as the bytes, so that the system has long enough room when they don't.
TEST_F(PosixRecordsLatin1, RoomIsCountedInConvertedTexts) {
  const std::string bytes(100, '\xE9');
  std::string text;
  for (size_t i = 0; i < bytes.size(); i++) {
    text += "\u00E9";
  }
  testhost::WriteFile("/etc/passwd", bytes + "::1234:2345:" + bytes + "::\n");
  testhost::WriteFile("/etc/group", bytes + "::2345:ab\n");
  char space[1000];
  passwd user;
  passwd *foundUser = nullptr;
  const size_t userSize = SmallestBuffer(space, sizeof space, [&](size_t size) {
    return Posix_Getpwnam_r(text.c_str(), &user, space, size, &foundUser);
  });
  ASSERT_EQ(foundUser, &user);
  EXPECT_EQ(user.pw_name, text);
  EXPECT_EQ(user.pw_gecos, text);
  EXPECT_EQ(userSize, 2 * (text.size() + 1) + 3);
  for (size_t offset = 0; offset < sizeof(char *); offset++) {
    char *buffer = space + offset;
    group group;
    ::group *found = nullptr;
    const size_t groupSize = SmallestBuffer(buffer, sizeof space - offset, [&](size_t size) {
      return Posix_Getgrnam_r(text.c_str(), &group, buffer, size, &found);
    });
    ASSERT_EQ(found, &group);
    EXPECT_EQ(group.gr_name, text);
    EXPECT_STREQ(group.gr_mem[0], "ab");
    EXPECT_EQ(group.gr_mem[0] + sizeof "ab", buffer + groupSize);
  }
}

TEST_F(PosixRecordsLatin1, ReentrantMountsLieInTheCallersBuffer) {
  char buffer[1000];
  mntent mount;
  mntent *found = nullptr;
  const size_t smallest = SmallestBuffer(buffer, sizeof buffer, [&](size_t size) {
    const OwnedMountTable table = OpenMtab();
    EXPECT_NE(Posix_Getmntent(table.get()), nullptr);
    errno = 0;
    found = Posix_Getmntent_r(table.get(), &mount, buffer, static_cast<int>(size));
    return found != nullptr ? 0 : errno;
  });
  EXPECT_EQ(found, &mount);
  ExpectCafe(&mount);
  EXPECT_TRUE(IsWithin(mount.mnt_opts, buffer, smallest));
  EXPECT_EQ(mount.mnt_opts + strlen(mount.mnt_opts) + 1, buffer + smallest);
}

TEST_F(PosixRecords, ReentrantMountsTakeLongLinesAndEnd) {
  const std::string options = "a=" + std::string(6000, 'x');
  testhost::WriteFile("/etc/mtab", "dev /mnt type " + options + " 3 4\n");
  const OwnedMountTable table = OpenMtab();
  std::vector<char> buffer(7000);
  mntent mount;
  ASSERT_EQ(Posix_Getmntent_r(table.get(), &mount, buffer.data(), static_cast<int>(buffer.size())), &mount);
  EXPECT_EQ(mount.mnt_opts, options);
  EXPECT_EQ(mount.mnt_passno, 4);
  EXPECT_EQ(Posix_Getmntent_r(table.get(), &mount, buffer.data(), static_cast<int>(buffer.size())), nullptr);
  rewind(table.get());
  EXPECT_FAILS(nullptr, ERANGE, Posix_Getmntent_r(table.get(), &mount, buffer.data(), -1));
}

// The system call would cut a line that is longer than the buffer.
TEST_F(PosixRecords, ReentrantMountsAreWholeOrNone) {
  std::string spaces;
  for (int i = 0; i < 3000; i++) {
    spaces += "\\040";
  }
  testhost::WriteFile("/etc/mtab", "#" + std::string(9000, '-') + "\n\ndev /mnt type a=" +
                                       std::string(6000, 'x') + " 3 4\ndev /mnt" + spaces + " type rw 5 6");
  const OwnedMountTable table = OpenMtab();
  std::vector<char> buffer(7000);
  mntent mount;
  for (const int size : {20, 100, 4095, 4096, 5000, 6016}) {
    SCOPED_TRACE(size);
    EXPECT_FAILS(nullptr, ERANGE, Posix_Getmntent_r(table.get(), &mount, buffer.data(), size));
    rewind(table.get());
  }
  ASSERT_EQ(Posix_Getmntent_r(table.get(), &mount, buffer.data(), 6017), &mount);
  EXPECT_EQ(mount.mnt_opts, "a=" + std::string(6000, 'x'));
  EXPECT_EQ(mount.mnt_freq, 3);
  ASSERT_EQ(Posix_Getmntent_r(table.get(), &mount, buffer.data(), 4000), &mount);
  EXPECT_EQ(mount.mnt_dir, "/mnt" + std::string(3000, ' '));
  EXPECT_STREQ(mount.mnt_opts, "rw");
  EXPECT_EQ(mount.mnt_passno, 6);
  EXPECT_EQ(Posix_Getmntent_r(table.get(), &mount, buffer.data(), 7000), nullptr);
}

// Every allocation of `get`, which returns 0 or an error number.
template <typename Get>
void ExpectENOMEM(const Get &get) {
  const size_t count = posixtest::CountAllocations([&] { EXPECT_EQ(get(), 0); });
  ASSERT_GT(count, 0U);
  for (size_t i = 0; i < count; i++) {
    const testhost::AllocationFault fault(i);
    EXPECT_EQ(get(), ENOMEM) << i;
    EXPECT_TRUE(fault.Happened());
  }
}

TEST_F(PosixRecords, LackOfMemoryIsENOMEM) {
  char buffer[1000];
  passwd user;
  passwd *foundUser = nullptr;
  group group;
  ::group *foundGroup = nullptr;
  mntent mount;
  testhost::WriteFile("/etc/group", "users:x:100:a,b,c\n");
  ExpectENOMEM([] { return Posix_Getpwnam("plain") != nullptr ? 0 : errno; });
  ExpectENOMEM([] { return Posix_Getgrnam("users") != nullptr ? 0 : errno; });
  ExpectENOMEM([&] { return Posix_Getpwuid_r(1500, &user, buffer, sizeof buffer, &foundUser); });
  ExpectENOMEM([&] { return Posix_Getgrnam_r("users", &group, buffer, sizeof buffer, &foundGroup); });
  const OwnedMountTable table = OpenMtab();
  ExpectENOMEM([&] {
    rewind(table.get());
    return Posix_Getmntent(table.get()) != nullptr ? 0 : errno;
  });
  ExpectENOMEM([&] {
    rewind(table.get());
    return Posix_Getmntent_r(table.get(), &mount, buffer, sizeof buffer) != nullptr ? 0 : errno;
  });
}

TEST_F(PosixRecordsLatin1, GroupsOfAUserAreListed) {
  gid_t groups[5] = {};
  int count = 5;
  EXPECT_EQ(Posix_Getgrouplist("jos\u00E9", 77, groups, &count), 3);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(std::vector<gid_t>(groups, groups + 3), (std::vector<gid_t>{77, 2345, 4567}));
  count = 1;
  EXPECT_EQ(Posix_Getgrouplist("jos\u00E9", 77, groups, &count), -1);
  EXPECT_EQ(count, 3);
}

TEST_F(PosixRecordsLatin1, AUserWhoseNameCannotBeConvertedHasJustTheGroup) {
  gid_t groups[5] = {};
  int count = 5;
  EXPECT_FAILS(1, EINVAL, Posix_Getgrouplist(kNotLatin1, 77, groups, &count));
  EXPECT_EQ(count, 1);
  EXPECT_EQ(groups[0], 77U);
  count = 1;
  groups[0] = 5;
  EXPECT_FAILS(1, EINVAL, Posix_Getgrouplist(kNotLatin1, 77, groups, &count));
  EXPECT_EQ(count, 1);
  EXPECT_EQ(groups[0], 77U);
  for (int room : {0, -3}) {
    groups[0] = 5;
    EXPECT_FAILS(-1, EINVAL, Posix_Getgrouplist(kNotLatin1, 77, groups, &room));
    EXPECT_EQ(room, 1);
    EXPECT_EQ(groups[0], 5U);
  }
  count = 5;
  EXPECT_FAILS(1, EFAULT, Posix_Getgrouplist(nullptr, 77, groups, &count));
}

TEST_F(PosixRecordsLatin1, ErrnoIsAsTheCallLeftIt) {
  char buffer[1000];
  passwd user;
  passwd *found = nullptr;
  errno = ECHILD;
  EXPECT_EQ(getpwuid_r(1234, &user, buffer, sizeof buffer, &found), 0);
  const int bare = errno;
  errno = ECHILD;
  EXPECT_EQ(Posix_Getpwuid_r(1234, &user, buffer, sizeof buffer, &found), 0);
  EXPECT_EQ(errno, bare);
  const OwnedMountTable table = OpenMtab();
  errno = ECHILD;
  EXPECT_NE(Posix_Getmntent(table.get()), nullptr);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
