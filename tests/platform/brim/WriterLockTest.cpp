// Writer exclusion that only the table's owner takes part in: an unprivileged process
// that can read the tables takes every lock it can get on them, and still a new
// writer attaches after the old one is killed; a lock object planted by another user
// is not trusted.
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "BrimTestSupport.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::ScratchTable;
using Writer = TableWriter<CounterRecord>;
using Reader = TableReader<CounterRecord>;

constexpr uint64_t kKeys = 20;

// What the unprivileged process managed; sent whole through a pipe.
struct Attempts {
  bool droppedPrivileges = false;
  bool readTable = false;  // opened the table read-only and found its records
  int tableLocksTaken = 0;
  int tableLocksTried = 0;
  bool openedLockObject = false;
  int lockObjectLocksTaken = 0;
};

bool waitReadable(int fd, int milliseconds) {
  pollfd p{fd, POLLIN, 0};
  return poll(&p, 1, milliseconds) == 1;
}

bool dropToNobody() {
  const passwd* nobody = getpwnam("nobody");
  if (nobody == nullptr) return false;
  return setgroups(0, nullptr) == 0 && setgid(nobody->pw_gid) == 0 && setuid(nobody->pw_uid) == 0 &&
         geteuid() == nobody->pw_uid;
}

// Every lock this process can take on `path`, each on its own open file description
// (a second flock on one description would only convert the first). The descriptors
// stay open, so the locks are held until the process exits.
void takeEveryLock(const std::string& path, int& tried, int& taken) {
  for (int how : {LOCK_EX, LOCK_SH}) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ++tried;
    if (fd >= 0 && flock(fd, how | LOCK_NB) == 0) ++taken;
  }
  for (int cmd : {F_SETLK, F_OFD_SETLK}) {
    for (short type : {F_RDLCK, F_WRLCK}) {
      const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
      struct flock lock {};
      lock.l_type = type;
      lock.l_whence = SEEK_SET;
      ++tried;
      if (fd >= 0 && fcntl(fd, cmd, &lock) == 0) ++taken;
    }
  }
}

[[noreturn]] void runUnprivileged(const ScratchTable& t, int resultFd, int holdFd) {
  Attempts attempts;
  attempts.droppedPrivileges = dropToNobody();
  if (attempts.droppedPrivileges) {
    try {
      auto reader = Reader::open(t.ns(), t.table());
      attempts.readTable = reader->size() == kKeys && reader->find(5)->values[0] == 5000;
    } catch (...) {
    }
    takeEveryLock("/dev/shm/" + t.name(), attempts.tableLocksTried, attempts.tableLocksTaken);
    const std::string lockPath = "/dev/shm/" + Brim::detail::WriterLock::objectName(t.name());
    for (int mode : {O_RDONLY, O_RDWR}) {
      const int fd = ::open(lockPath.c_str(), mode | O_CLOEXEC);
      if (fd >= 0) {
        attempts.openedLockObject = true;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0 || flock(fd, LOCK_SH | LOCK_NB) == 0) {
          ++attempts.lockObjectLocksTaken;
        }
      }
    }
    int ignored = 0;
    takeEveryLock(lockPath, ignored, attempts.lockObjectLocksTaken);
  }
  if (write(resultFd, &attempts, sizeof attempts) != static_cast<ssize_t>(sizeof attempts)) {
    _exit(3);
  }
  // Holds every lock until the test closes the other end.
  char byte;
  while (read(holdFd, &byte, 1) > 0) {
  }
  _exit(0);
}

[[noreturn]] void runWriter(const ScratchTable& t, int readyFd) {
  try {
    auto writer = Writer::open(t.ns(), t.table(), 32);
    for (uint64_t k = 1; k <= kKeys; ++k) writer->put(CounterRecord::make(k, k));
    const char go = 'g';
    if (write(readyFd, &go, 1) != 1) _exit(3);
    for (;;) pause();
  } catch (...) {
    _exit(2);
  }
}

// A second writer after the first was killed: exit 0 when it attached and found
// every record whole.
[[noreturn]] void runSecondWriter(const ScratchTable& t) {
  try {
    auto writer = Writer::open(t.ns(), t.table(), 32);
    if (writer->generation() != 2 || writer->size() != kKeys) _exit(4);
    for (uint64_t k = 1; k <= kKeys; ++k) {
      if (writer->find(k)->values[0] != k * 1000) _exit(5);
    }
    writer->put(CounterRecord::make(kKeys + 1, 1));
    _exit(writer->validate().empty() ? 0 : 6);
  } catch (const Brim::WriterBusyException&) {
    _exit(7);
  } catch (...) {
    _exit(8);
  }
}

int waitExit(pid_t child, int seconds) {
  for (int i = 0; i < seconds * 100; ++i) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) {
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    usleep(10 * 1000);
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return -1;
}

TEST(BrimWriterLock, UnprivilegedReaderHoldingEveryLockItCanDoesNotStopTheNextWriter) {
  if (geteuid() != 0 || getpwnam("nobody") == nullptr) {
    GTEST_SKIP() << "needs to run as root with a user 'nobody'";
  }
  ScratchTable t;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) runWriter(t, ready[1]);
  ASSERT_TRUE(waitReadable(ready[0], 10000)) << "the writer did not start";
  char go;
  ASSERT_EQ(read(ready[0], &go, 1), 1);

  // The tables are readable by everyone, as the agent publishes them.
  struct stat st {};
  ASSERT_EQ(stat(("/dev/shm/" + t.name()).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  ASSERT_EQ(stat(("/dev/shm/" + Brim::detail::WriterLock::objectName(t.name())).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  int result[2];
  int hold[2];
  ASSERT_EQ(pipe(result), 0);
  ASSERT_EQ(pipe(hold), 0);
  const pid_t nobody = fork();
  ASSERT_GE(nobody, 0);
  if (nobody == 0) {
    close(hold[1]);
    runUnprivileged(t, result[1], hold[0]);
  }
  close(hold[0]);
  Attempts attempts;
  const bool answered =
      waitReadable(result[0], 10000) &&
      read(result[0], &attempts, sizeof attempts) == static_cast<ssize_t>(sizeof attempts);

  kill(writer, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_TRUE(WIFSIGNALED(status));

  const pid_t second = fork();
  ASSERT_GE(second, 0);
  if (second == 0) runSecondWriter(t);
  const int secondExit = waitExit(second, 30);

  close(hold[1]);  // lets the unprivileged process go
  EXPECT_EQ(waitExit(nobody, 10), 0);
  for (int fd : {ready[0], ready[1], result[0], result[1]}) close(fd);

  ASSERT_TRUE(answered) << "the unprivileged process did not report";
  std::printf("unprivileged process: %d of %d locks on the table taken, lock object %s\n",
              attempts.tableLocksTaken, attempts.tableLocksTried,
              attempts.openedLockObject ? "opened" : "could not be opened");
  EXPECT_TRUE(attempts.droppedPrivileges);
  EXPECT_TRUE(attempts.readTable);
  // It could lock the table object (an exclusive flock, shared record locks) ...
  EXPECT_EQ(attempts.tableLocksTried, 6);
  EXPECT_GE(attempts.tableLocksTaken, 3);
  // ... but not even open the writer lock.
  EXPECT_FALSE(attempts.openedLockObject);
  EXPECT_EQ(attempts.lockObjectLocksTaken, 0);
  EXPECT_EQ(secondExit, 0) << "4: wrong generation or size, 5: a record changed, 6: validation "
                              "failed, 7: refused as busy, 8: another error, -1: hung";
}

TEST(BrimWriterLock, LockObjectPlantedByAnotherUserIsReplaced) {
  if (geteuid() != 0 || getpwnam("nobody") == nullptr) {
    GTEST_SKIP() << "needs to run as root with a user 'nobody'";
  }
  ScratchTable t;
  const std::string lockPath = "/dev/shm/" + Brim::detail::WriterLock::objectName(t.name());
  int hold[2];
  int ready[2];
  ASSERT_EQ(pipe(hold), 0);
  ASSERT_EQ(pipe(ready), 0);
  const pid_t planter = fork();
  ASSERT_GE(planter, 0);
  if (planter == 0) {
    close(hold[1]);
    if (!dropToNobody()) _exit(2);
    const int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 || fchmod(fd, 0666) != 0 || flock(fd, LOCK_EX | LOCK_NB) != 0) _exit(3);
    const char go = 'g';
    if (write(ready[1], &go, 1) != 1) _exit(4);
    char byte;
    while (read(hold[0], &byte, 1) > 0) {
    }
    _exit(0);
  }
  close(hold[0]);
  ASSERT_TRUE(waitReadable(ready[0], 10000)) << "the planter did not start";
  char go;
  ASSERT_EQ(read(ready[0], &go, 1), 1);

  auto writer = Writer::open(t.ns(), t.table(), 8);
  writer->put(CounterRecord::make(1, 1));
  struct stat st {};
  ASSERT_EQ(stat(lockPath.c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, 0u);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // A real second writer is still refused, with the usual words.
  try {
    Writer::open(t.ns(), t.table(), 8);
    FAIL() << "a second writer attached";
  } catch (const Brim::WriterBusyException& e) {
    EXPECT_EQ(std::string(e.what()),
              "table " + t.name() + " already has a writer (pid " + std::to_string(getpid()) + ")");
  }
  close(hold[1]);
  EXPECT_EQ(waitExit(planter, 10), 0);
  close(ready[0]);
  close(ready[1]);
}

TEST(BrimWriterLock, UnlinkingATableRemovesItsLockObject) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 8)->put(CounterRecord::make(1, 1));
  const std::string lockPath = "/dev/shm/" + Brim::detail::WriterLock::objectName(t.name());
  EXPECT_EQ(access(lockPath.c_str(), F_OK), 0);
  EXPECT_TRUE(Brim::unlinkTable(t.ns(), t.table()));
  EXPECT_NE(access(lockPath.c_str(), F_OK), 0);
  EXPECT_FALSE(Brim::unlinkTable(t.ns(), t.table()));
}

}  // namespace
