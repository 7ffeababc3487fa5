// The files of the registry, one per hive:
//
//   HKEY_LOCAL_MACHINE  $VELTRANE_SYSCONFDIR/veltrane/registry, or the
//                       configured system configuration directory
//                       (/etc/veltrane/registry for a package installed
//                       under /usr, <prefix>/etc/veltrane/registry otherwise)
//   HKEY_CURRENT_USER   $XDG_CONFIG_HOME/veltrane/registry, or
//                       $HOME/.config/veltrane/registry
//
// in the text form of registry_hive.h. A missing file is an empty hive. A
// change is written to a new file in the same directory, flushed to disk and
// renamed over the old one, so that a reader sees the old content or the
// new, never a part, and a crash keeps what was there. Writers of one file
// take turns by an advisory lock on "registry.lock" beside it; readers take
// no lock.
#pragma once

#include <functional>
#include <string>

#include "platform/registry_hive.h"

namespace veltrane::platform::registry {

enum class HiveId { Machine, User };

// The file of a hive; empty when it has no place (no $HOME for the user's).
std::string HiveFilePath(HiveId hive);

// Runs op on the hive. A read works on the file as it stands, a write is
// applied to the current content under the lock and written when op returns
// ERROR_SUCCESS. Within an open transaction of the calling thread both work
// on the transaction's copy. Failures of the store: ERROR_BADDB for a file
// that is not in the text form, ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND,
// ERROR_CANTWRITE.
LONG ReadHive(HiveId hive, const std::function<LONG(const Key&)>& op);
LONG WriteHive(HiveId hive, const std::function<LONG(Key&)>& op);

}  // namespace veltrane::platform::registry

namespace veltrane::platform {

// All registry changes of the calling thread, from construction to Commit,
// as one: Commit writes each hive that changed, atomically; without a
// Commit nothing is written. A hive that the transaction changes is locked
// against other writers until the end. Transactions of a thread nest: an
// inner one joins the outer, and only the outermost writes.
class RegistryTransaction {
 public:
  RegistryTransaction();
  ~RegistryTransaction();
  RegistryTransaction(const RegistryTransaction&) = delete;
  RegistryTransaction& operator=(const RegistryTransaction&) = delete;

  // ERROR_SUCCESS, or the failure of writing a file (the files written
  // before it keep their new content).
  LONG Commit();

 private:
  bool m_outermost;
  bool m_done = false;
};

}  // namespace veltrane::platform
