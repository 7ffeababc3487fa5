// Clients, languages and users with their logon data.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vsim {

struct ClientInfo {
  std::string id;  // three digits
  std::string text;
  std::string city;
  std::string currency;
};

struct Language {
  std::string key;  // one letter, as SY-LANGU
  std::string iso;  // two letters
  std::string text;
};

struct User {
  std::string client;
  std::string name;  // upper case
  std::string password;
  bool locked = false;
  bool passwordExpired = false;
  std::string language = "E";
  std::string fullName;
  std::vector<std::string> allowedFunctions;  // empty: every function module
  int failedLogons = 0;
};

enum class LogonResult { Ok, UnknownClient, UnknownUser, WrongPassword, Locked };
const char* logonResultText(LogonResult r);

class UserStore {
 public:
  void addClient(ClientInfo client);
  void addLanguage(Language language);
  void addUser(User user);  // replaces a user of the same client and name

  bool hasClient(const std::string& client) const;
  std::vector<ClientInfo> clients() const;
  std::vector<Language> languages() const;
  // The one-letter key of a language given by key or ISO code (any case); nullopt when unknown.
  std::optional<std::string> languageKey(const std::string& keyOrIso) const;
  std::optional<std::string> languageIso(const std::string& key) const;

  std::optional<User> find(const std::string& client, const std::string& user) const;
  // Checks a password; a wrong one counts towards the lock, five of them lock the user.
  LogonResult check(const std::string& client, const std::string& user, const std::string& password);
  // Sets a new password and ends an expired state. Returns false for an unknown user.
  bool setPassword(const std::string& client, const std::string& user, const std::string& password);
  bool mayCall(const std::string& client, const std::string& user, const std::string& function) const;

  static constexpr int kMaxFailedLogons = 5;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, ClientInfo> clients_;
  std::vector<Language> languages_;
  std::map<std::pair<std::string, std::string>, User> users_;
};

}  // namespace vsim
