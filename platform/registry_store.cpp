#include "platform/registry_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "platform/winreg.h"

#ifndef VELTRANE_SYSCONFDIR
#define VELTRANE_SYSCONFDIR "/etc"
#endif

namespace veltrane::platform::registry {

namespace {

const char* HiveName(HiveId hive) { return hive == HiveId::Machine ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER"; }

LONG ErrnoResult(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
    case EROFS: return ERROR_ACCESS_DENIED;
    case ENOENT:
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    default: return ERROR_CANTWRITE;
  }
}

std::string DirectoryOf(const std::string& file) { return file.substr(0, file.rfind('/')); }

// Creates the directory and its parents.
LONG MakeDirectories(const std::string& dir) {
  if (dir.empty()) return ERROR_SUCCESS;
  struct stat st {};
  if (stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
  const LONG parent = MakeDirectories(DirectoryOf(dir));
  if (parent != ERROR_SUCCESS) return parent;
  if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) return ErrnoResult(errno);
  return ERROR_SUCCESS;
}

LONG Load(HiveId hive, Key* root) {
  *root = Key();
  const std::string path = HiveFilePath(hive);
  if (path.empty()) return ERROR_SUCCESS;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? ERROR_SUCCESS : ErrnoResult(errno);
  std::string text;
  char buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      close(fd);
      return ErrnoResult(error);
    }
    if (n == 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  try {
    *root = ReadHive(text);
  } catch (const HiveSyntaxError&) {
    return ERROR_BADDB;
  }
  return ERROR_SUCCESS;
}

bool WriteAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Writes the hive to a new file beside the old one and renames it over it.
LONG Store(HiveId hive, const Key& root) {
  const std::string path = HiveFilePath(hive);
  if (path.empty()) return ERROR_PATH_NOT_FOUND;
  const std::string dir = DirectoryOf(path);
  std::string temp = path + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  if (fd < 0) return ErrnoResult(errno);
  const std::string text = WriteHive(root, std::string("Veltrane registry, ") + HiveName(hive) +
                                               ". Written by the component; see docs/registration.md.");
  const bool written = fchmod(fd, 0644) == 0 && WriteAll(fd, text) && fsync(fd) == 0;
  const int error = errno;
  close(fd);
  if (!written || rename(temp.c_str(), path.c_str()) != 0) {
    const LONG result = ErrnoResult(written ? errno : error);
    unlink(temp.c_str());
    return result;
  }
  const int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd >= 0) {
    fsync(dirFd);
    close(dirFd);
  }
  return ERROR_SUCCESS;
}

// The writers' lock of a hive's file, held while the object lives.
class HiveLock {
 public:
  LONG Acquire(HiveId hive) {
    const std::string path = HiveFilePath(hive);
    if (path.empty()) return ERROR_PATH_NOT_FOUND;
    const LONG made = MakeDirectories(DirectoryOf(path));
    if (made != ERROR_SUCCESS) return made;
    const std::string lockPath = DirectoryOf(path) + "/registry.lock";
    m_fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (m_fd < 0) return ErrnoResult(errno);
    while (flock(m_fd, LOCK_EX) != 0)
      if (errno != EINTR) return ErrnoResult(errno);
    return ERROR_SUCCESS;
  }
  ~HiveLock() {
    if (m_fd >= 0) close(m_fd);
  }

 private:
  int m_fd = -1;
};

// A hive as an open transaction holds it.
struct OpenHive {
  Key root;
  std::optional<HiveLock> lock;  // taken at the first change
  bool changed = false;
};

struct ThreadTransaction {
  int depth = 0;
  std::map<HiveId, OpenHive> hives;
};

thread_local ThreadTransaction t_transaction;

LONG OpenForTransaction(HiveId hive, bool forWrite, OpenHive** out) {
  auto it = t_transaction.hives.find(hive);
  if (it == t_transaction.hives.end()) {
    OpenHive fresh;
    const LONG loaded = Load(hive, &fresh.root);
    if (loaded != ERROR_SUCCESS) return loaded;
    it = t_transaction.hives.emplace(hive, std::move(fresh)).first;
  }
  OpenHive& open = it->second;
  if (forWrite && !open.lock) {
    // Nothing of this hive has changed yet: read it again under the lock.
    HiveLock& lock = open.lock.emplace();
    LONG result = lock.Acquire(hive);
    if (result == ERROR_SUCCESS) result = Load(hive, &open.root);
    if (result != ERROR_SUCCESS) {
      open.lock.reset();
      return result;
    }
  }
  *out = &open;
  return ERROR_SUCCESS;
}

}  // namespace

std::string HiveFilePath(HiveId hive) {
  if (hive == HiveId::Machine) {
    const char* dir = std::getenv("VELTRANE_SYSCONFDIR");
    return std::string(dir && *dir ? dir : VELTRANE_SYSCONFDIR) + "/veltrane/registry";
  }
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config == '/')
    return std::string(config) + "/veltrane/registry";
  if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.config/veltrane/registry";
  return {};
}

LONG ReadHive(HiveId hive, const std::function<LONG(const Key&)>& op) {
  if (t_transaction.depth > 0) {
    OpenHive* open = nullptr;
    const LONG result = OpenForTransaction(hive, false, &open);
    return result != ERROR_SUCCESS ? result : op(open->root);
  }
  Key root;
  const LONG result = Load(hive, &root);
  return result != ERROR_SUCCESS ? result : op(root);
}

LONG WriteHive(HiveId hive, const std::function<LONG(Key&)>& op) {
  if (t_transaction.depth > 0) {
    OpenHive* open = nullptr;
    LONG result = OpenForTransaction(hive, true, &open);
    if (result != ERROR_SUCCESS) return result;
    result = op(open->root);
    if (result == ERROR_SUCCESS) open->changed = true;
    return result;
  }
  HiveLock lock;
  LONG result = lock.Acquire(hive);
  Key root;
  if (result == ERROR_SUCCESS) result = Load(hive, &root);
  if (result == ERROR_SUCCESS) result = op(root);
  if (result == ERROR_SUCCESS) result = Store(hive, root);
  return result;
}

}  // namespace veltrane::platform::registry

namespace veltrane::platform {

RegistryTransaction::RegistryTransaction() : m_outermost(registry::t_transaction.depth++ == 0) {}

RegistryTransaction::~RegistryTransaction() {
  if (--registry::t_transaction.depth == 0) registry::t_transaction.hives.clear();
}

LONG RegistryTransaction::Commit() {
  if (m_done || !m_outermost) return ERROR_SUCCESS;
  m_done = true;
  for (auto& [hive, open] : registry::t_transaction.hives) {
    if (!open.changed) continue;
    const LONG result = registry::Store(hive, open.root);
    if (result != ERROR_SUCCESS) return result;
  }
  return ERROR_SUCCESS;
}

}  // namespace veltrane::platform
