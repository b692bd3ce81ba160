// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/atomic_file.hpp>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vorn/core/exception.hpp>

#include "support/expect_error.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"

namespace fs = std::filesystem;
using vorn::AtomicFile;
using vorn::test::contentOf;
using vorn::test::expectError;
using vorn::test::put;
using vorn::test::TemporaryFolder;

namespace {

std::size_t filesIn(fs::path const& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

void save(fs::path const& path, std::string const& text) {
  AtomicFile file(path.string());
  file.write(text);
  file.commit();
}

/// Lets no file of this process grow beyond `size` bytes while it lives: a disk that fills up.
class FullDisk {
public:
  explicit FullDisk(rlim_t size) : oldHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &oldLimit_);
    rlimit const limit = {size, oldLimit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullDisk(FullDisk const&) = delete;
  FullDisk& operator=(FullDisk const&) = delete;
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &oldLimit_);
    std::signal(SIGXFSZ, oldHandler_);
  }

private:
  rlimit oldLimit_ = {};
  void (*oldHandler_)(int);
};

/// Runs `work` in a process of its own, which then ends without tidying up, and returns how that ended.
template <class Work>
int statusOfChild(Work const& work) {
  pid_t const child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

bool knowsNamelessFiles([[maybe_unused]] fs::path const& folder) {
#ifdef VORN_MV_PLAIN
  return false;
#else
  int const descriptor = open(folder.c_str(), O_WRONLY | O_TMPFILE, 0600);
  if (descriptor >= 0) {
    close(descriptor);
  }
  return descriptor >= 0 && fs::exists("/proc/self/fd"); // by which they get their name
#endif
}

} // namespace

TEST(AtomicFile, AppearsOnlyWhenCommitted) {
  TemporaryFolder const folder;
  fs::path const path = folder / "a.txt";
  put(path, "old");
  {
    AtomicFile file(path.string());
    file.write("new");
    file.write(" text");
    EXPECT_EQ(contentOf(path), "old");
    file.commit();
    EXPECT_EQ(contentOf(path), "new text");
  }
  {
    AtomicFile abandoned(path.string());
    abandoned.write("half");
  }
  EXPECT_EQ(contentOf(path), "new text");
  EXPECT_EQ(filesIn(folder.path()), 1U);
}

TEST(AtomicFile, FullDiskKeepsTheOldFile) {
  TemporaryFolder const folder;
  fs::path const path = folder / "a.txt";
  put(path, "old");
  {
    FullDisk const fullDisk(1000);
    AtomicFile file(path.string());
    expectError([&] { file.write(std::string(5000, 'x')); },
                "Cannot write " + path.string() + ": File too large");
    EXPECT_EQ(filesIn(folder.path()), 1U);
    expectError([&] { file.commit(); }, "Cannot write");
  }
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(filesIn(folder.path()), 1U);
  expectError([] { save("/dev/full", "x"); }, "Cannot write /dev/full: No space left on device");
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(AtomicFile, KilledProcessLeavesTheOldFileAndNothingElse) {
  TemporaryFolder const folder;
  for (bool const isReplaced : {false, true}) {
    fs::path const path = folder / (isReplaced ? "old.txt" : "fresh.txt");
    if (isReplaced) {
      put(path, "old");
    }
    int const status = statusOfChild([&] {
      AtomicFile file(path.string());
      file.write(std::string(10000, 'x'));
      raise(SIGKILL);
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(fs::exists(path), isReplaced);
  }
  EXPECT_EQ(contentOf(folder / "old.txt"), "old");
  if (!knowsNamelessFiles(folder.path())) {
    GTEST_SKIP() << "This file system has no files without names.";
  }
  EXPECT_EQ(filesIn(folder.path()), 1U);
}

TEST(AtomicFile, LockedFolderKeepsTheOldFile) {
  TemporaryFolder const folder;
  fs::permissions(folder.path(), fs::perms{0755});
  fs::create_directory(folder / "locked");
  fs::path const path = folder / "locked/a.txt";
  put(path, "old");
  fs::permissions(path, fs::perms{0666});
  fs::permissions(folder / "locked", fs::perms{0555});
  int const status = statusOfChild([&] {
    constexpr uid_t nobody = 65534; // the superuser is refused nothing
    if (geteuid() == 0 && setuid(nobody) != 0) {
      _exit(1);
    }
    for (auto const& target : {path, folder / "locked/new.txt"}) {
      expectError([&] { save(target, "new"); }, "Cannot open " + target.string() + ": Permission denied");
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(filesIn(folder / "locked"), 1U);
  fs::permissions(folder / "locked", fs::perms{0755});
}

TEST(AtomicFile, UnusableTargetsAreNamedWithTheReason) {
  TemporaryFolder const folder;
  std::string const missing = (folder / "none/a.txt").string();
  expectError([&] { AtomicFile file(missing); }, "Cannot open " + missing + ": No such file or directory");
  expectError([&] { AtomicFile file(folder.path().string()); }, "Is a directory");
  expectError([&] { AtomicFile file((folder / "new/").string()); }, "Is a directory");
  expectError([] { AtomicFile file(""); }, "No such file or directory");
  fs::create_symlink("loop", folder / "loop");
  expectError([&] { AtomicFile file((folder / "loop").string()); }, "Too many levels of symbolic links");
  expectError([&] { AtomicFile file((folder / std::string(300, 'n')).string()); }, "File name too long");
  // What is no file and cannot be opened either.
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  fs::path const name = folder / "s";
  ASSERT_LT(name.string().size(), sizeof address.sun_path);
  name.string().copy(address.sun_path, sizeof address.sun_path - 1);
  int const bound = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(bound, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
  expectError([&] { AtomicFile file(name.string()); }, "Cannot open " + name.string() + ": No such device");
  ::close(bound);
}

TEST(AtomicFile, ReplacedFileKeepsItsPermissions) {
  TemporaryFolder const folder;
  fs::path const path = folder / std::string(255, 'n'); // the longest name there is
  put(path, "old");
  for (auto const bits : {fs::perms{0640}, fs::perms{0755}}) {
    fs::permissions(path, bits);
    save(path, "new");
    EXPECT_EQ(fs::status(path).permissions(), bits);
  }
  mode_t const oldMask = umask(027);
  save(folder / "fresh", "new");
  umask(oldMask);
  EXPECT_EQ(fs::status(folder / "fresh").permissions(), fs::perms{0640});
}

TEST(AtomicFile, LinksStayAndTheirFileIsReplaced) {
  TemporaryFolder const folder;
  fs::create_directory(folder / "data");
  put(folder / "data/real.txt", "old");
  fs::create_symlink("data/real.txt", folder / "link");
  fs::create_symlink("data/absent.txt", folder / "dangling");
  save(folder / "link", "new");
  save(folder / "dangling", "made");
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(contentOf(folder / "data/real.txt"), "new");
  EXPECT_EQ(contentOf(folder / "data/absent.txt"), "made");
}

TEST(AtomicFile, WritesOnWhatTheShellHasOpened) {
  TemporaryFolder const folder;
  put(folder / "log", "old\n");
  int const descriptor = ::open((folder / "log").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  save("/dev/fd/" + std::to_string(descriptor), "new\n");
  save("/proc/self/fd/" + std::to_string(descriptor), "newer\n");
  ::close(descriptor);
  EXPECT_EQ(contentOf(folder / "log"), "old\nnew\nnewer\n");
  EXPECT_EQ(filesIn(folder.path()), 1U);
}

TEST(AtomicFile, TargetInTheCurrentFolder) {
  TemporaryFolder const folder;
  fs::path const before = fs::current_path();
  fs::current_path(folder.path());
  save("plain.txt", "text");
  fs::current_path(before);
  EXPECT_EQ(contentOf(folder / "plain.txt"), "text");
}
