#include "engine/users.h"

#include <algorithm>

#include "engine/convert.h"

namespace vsim {

const char* logonResultText(LogonResult r) {
  switch (r) {
    case LogonResult::Ok: return "ok";
    case LogonResult::UnknownClient: return "unknown client";
    case LogonResult::UnknownUser: return "unknown user";
    case LogonResult::WrongPassword: return "wrong password";
    case LogonResult::Locked: return "user locked";
  }
  return "?";
}

void UserStore::addClient(ClientInfo client) {
  std::lock_guard lock(mutex_);
  clients_[client.id] = std::move(client);
}

void UserStore::addLanguage(Language language) {
  std::lock_guard lock(mutex_);
  languages_.push_back(std::move(language));
}

void UserStore::addUser(User user) {
  user.name = toUpper(user.name);
  std::lock_guard lock(mutex_);
  auto key = std::make_pair(user.client, user.name);
  users_[key] = std::move(user);
}

bool UserStore::hasClient(const std::string& client) const {
  std::lock_guard lock(mutex_);
  return clients_.count(client) > 0;
}

std::vector<ClientInfo> UserStore::clients() const {
  std::lock_guard lock(mutex_);
  std::vector<ClientInfo> out;
  for (const auto& [id, c] : clients_) out.push_back(c);
  return out;
}

std::vector<Language> UserStore::languages() const {
  std::lock_guard lock(mutex_);
  return languages_;
}

std::optional<std::string> UserStore::languageKey(const std::string& keyOrIso) const {
  const std::string u = toUpper(keyOrIso);
  std::lock_guard lock(mutex_);
  for (const auto& l : languages_)
    if (l.key == u || l.iso == u) return l.key;
  return std::nullopt;
}

std::optional<std::string> UserStore::languageIso(const std::string& key) const {
  std::lock_guard lock(mutex_);
  for (const auto& l : languages_)
    if (l.key == key) return l.iso;
  return std::nullopt;
}

std::optional<User> UserStore::find(const std::string& client, const std::string& user) const {
  std::lock_guard lock(mutex_);
  auto it = users_.find({client, toUpper(user)});
  if (it == users_.end()) return std::nullopt;
  return it->second;
}

LogonResult UserStore::check(const std::string& client, const std::string& user, const std::string& password) {
  std::lock_guard lock(mutex_);
  if (!clients_.count(client)) return LogonResult::UnknownClient;
  auto it = users_.find({client, toUpper(user)});
  if (it == users_.end()) return LogonResult::UnknownUser;
  User& u = it->second;
  if (u.locked) return LogonResult::Locked;
  if (u.password != password) {
    if (++u.failedLogons >= kMaxFailedLogons) u.locked = true;
    return LogonResult::WrongPassword;
  }
  u.failedLogons = 0;
  return LogonResult::Ok;
}

bool UserStore::setPassword(const std::string& client, const std::string& user, const std::string& password) {
  std::lock_guard lock(mutex_);
  auto it = users_.find({client, toUpper(user)});
  if (it == users_.end()) return false;
  it->second.password = password;
  it->second.passwordExpired = false;
  return true;
}

bool UserStore::mayCall(const std::string& client, const std::string& user, const std::string& function) const {
  std::lock_guard lock(mutex_);
  auto it = users_.find({client, toUpper(user)});
  if (it == users_.end()) return false;
  const auto& allowed = it->second.allowedFunctions;
  return allowed.empty() || std::find(allowed.begin(), allowed.end(), function) != allowed.end();
}

}  // namespace vsim
