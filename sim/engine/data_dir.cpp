#include "engine/data_dir.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "engine/convert.h"
#include "engine/system.h"

namespace vsim {

namespace {

using json = nlohmann::json;

[[noreturn]] void fail(const std::string& where, const std::string& what) { throw DataDirError(where + ": " + what); }

std::string str(const json& j, const char* key, const std::string& where, bool required = false) {
  if (!j.contains(key)) {
    if (required) fail(where, std::string("\"") + key + "\" is missing");
    return {};
  }
  if (!j[key].is_string()) fail(where, std::string("\"") + key + "\" must be a string");
  return j[key].get<std::string>();
}

bool flag(const json& j, const char* key, const std::string& where) {
  if (!j.contains(key)) return false;
  if (!j[key].is_boolean()) fail(where, std::string("\"") + key + "\" must be true or false");
  return j[key].get<bool>();
}

// The plain text of a JSON scalar.
std::string plainText(const json& j, const std::string& where) {
  if (j.is_string()) return j.get<std::string>();
  if (j.is_boolean()) return j.get<bool>() ? "X" : "";
  if (j.is_number_integer()) return std::to_string(j.get<long long>());
  if (j.is_number_unsigned()) return std::to_string(j.get<unsigned long long>());
  if (j.is_number_float()) return j.dump();
  if (j.is_null()) return "";
  fail(where, "a scalar value is expected");
}

Value fromJson(const TypeDesc& t, const json& j, const std::string& where) {
  if (j.is_null()) return initialValue(t);
  if (t.kind == Kind::Struct) {
    if (!j.is_object()) fail(where, "an object is expected for structure " + t.name);
    Value v = initialValue(t);
    for (auto it = j.begin(); it != j.end(); ++it) {
      const int i = t.find(it.key());
      if (i < 0)
        fail(where,
             "structure " + (t.name.empty() ? std::string("(inline)") : t.name) + " has no component " + it.key());
      v.items()[static_cast<size_t>(i)] =
          fromJson(*t.components[static_cast<size_t>(i)].type, it.value(), where + "." + it.key());
    }
    return v;
  }
  if (t.kind == Kind::Table) {
    if (!j.is_array()) fail(where, "an array is expected for a table");
    Value v(Value::List{});
    size_t n = 0;
    for (const auto& r : j) v.items().push_back(fromJson(*t.row, r, where + "[" + std::to_string(n++) + "]"));
    return v;
  }
  try {
    return parseValue(t, plainText(j, where), TextForm::Plain);
  } catch (const ConversionError& e) {
    fail(where, e.what());
  }
}

// A value of one type carried over to another: scalars by their text, structures by component name.
Value carry(const TypeDesc& from, const Value& v, const TypeDesc& to) {
  if (&from == &to) return v;
  if (from.isScalar() && to.isScalar()) {
    if (from.kind == to.kind && from.length == to.length && from.decimals == to.decimals) return v;
    return parseValue(to, formatPlain(from, v), TextForm::Plain);
  }
  if (from.kind == Kind::Struct && to.kind == Kind::Struct) {
    Value out = initialValue(to);
    for (size_t i = 0; i < to.components.size(); ++i) {
      const int k = from.find(to.components[i].name);
      if (k >= 0)
        out.items()[i] = carry(*from.components[static_cast<size_t>(k)].type, v.items()[static_cast<size_t>(k)],
                               *to.components[i].type);
    }
    return out;
  }
  if (from.kind == Kind::Table && to.kind == Kind::Table) {
    Value out(Value::List{});
    for (const Value& r : v.items()) out.items().push_back(carry(*from.row, r, *to.row));
    return out;
  }
  throw ConversionError("incompatible types");
}

struct Outcome {
  std::map<std::string, json> result;
  std::string raise;
  std::optional<AbapMessage> message;
  std::string errorKey, errorMessage;
};

struct Case {
  std::map<std::string, Value> when;  // parameter -> value in its type
  Outcome outcome;
};

struct Behaviour {
  bool echo = false;
  std::map<std::string, std::string> from;  // exporting/changing parameter -> source parameter
  std::vector<Case> cases;
  Outcome otherwise;
};

AbapMessage readMessage(const json& j, const std::string& where) {
  if (!j.is_object()) fail(where, "a message object is expected");
  AbapMessage m;
  m.id = str(j, "id", where);
  m.type = str(j, "type", where);
  if (m.type.empty()) m.type = "E";
  m.number = str(j, "number", where);
  m.text = str(j, "text", where, true);
  const char* vars[] = {"v1", "v2", "v3", "v4"};
  for (int i = 0; i < 4; ++i) m.vars[static_cast<size_t>(i)] = str(j, vars[i], where);
  m.text = messageText(m.text, m.vars);
  return m;
}

Outcome readOutcome(const json& j, const FunctionModule& fm, const std::string& where) {
  Outcome o;
  if (j.contains("result")) {
    const json& r = j["result"];
    if (!r.is_object()) fail(where + ".result", "an object of parameter values is expected");
    for (auto it = r.begin(); it != r.end(); ++it) {
      const int i = fm.find(it.key());
      if (i < 0) fail(where + ".result", fm.name + " has no parameter " + it.key());
      if (fm.params[static_cast<size_t>(i)].direction == Direction::Importing)
        fail(where + ".result", it.key() + " is an importing parameter");
      fromJson(*fm.params[static_cast<size_t>(i)].type, it.value(), where + ".result." + it.key());  // checked now
      o.result[it.key()] = it.value();
    }
  }
  o.raise = str(j, "raise", where);
  if (!o.raise.empty() && !fm.declares(o.raise)) fail(where, fm.name + " does not declare exception " + o.raise);
  if (j.contains("message")) o.message = readMessage(j["message"], where + ".message");
  if (j.contains("error")) {
    const json& e = j["error"];
    if (!e.is_object()) fail(where + ".error", "an object with key and message is expected");
    o.errorKey = str(e, "key", where + ".error", true);
    o.errorMessage = str(e, "message", where + ".error", true);
  }
  return o;
}

void apply(const Outcome& o, CallContext& ctx) {
  for (const auto& [name, value] : o.result) ctx[name] = fromJson(ctx.typeOf(name), value, name);
  if (!o.errorKey.empty()) throw SystemFailure(o.errorKey, o.errorMessage);
  if (!o.raise.empty()) {
    if (o.message) ctx.raise(o.raise, *o.message);
    ctx.raise(o.raise);
  }
  if (o.message && (o.message->type == "E" || o.message->type == "A"))
    throw SystemFailure("ERROR_MESSAGE_STATE", o.message->text, *o.message);
}

class Loader {
 public:
  Loader(System& s, DataDirSummary& sum) : s_(s), sum_(sum) {}

  void load(const json& doc, const std::string& origin) {
    if (!doc.is_object()) fail(origin, "the document must be a JSON object");
    static const char* sections[] = {"clients", "elements", "structures", "tableTypes", "tables", "users", "functions"};
    for (auto it = doc.begin(); it != doc.end(); ++it)
      if (std::find_if(std::begin(sections), std::end(sections), [&](const char* s) { return it.key() == s; }) ==
          std::end(sections))
        fail(origin, "unknown section \"" + it.key() + "\"");
    for (const char* section : sections) {
      if (!doc.contains(section)) continue;
      const json& list = doc[section];
      if (!list.is_array()) fail(origin + ": " + section, "an array is expected");
      for (size_t i = 0; i < list.size(); ++i) {
        const std::string where = origin + ": " + section + "[" + std::to_string(i) + "]";
        const json& item = list[i];
        if (!item.is_object()) fail(where, "an object is expected");
        try {
          dispatch(section, item, where);
        } catch (const std::invalid_argument& e) {
          fail(where, e.what());
        }
      }
    }
  }

 private:
  void dispatch(const std::string& section, const json& j, const std::string& where) {
    if (section == "clients") return client(j, where);
    if (section == "elements") return element(j, where);
    if (section == "structures") return structure(j, where);
    if (section == "tableTypes") return tableType(j, where);
    if (section == "tables") return table(j, where);
    if (section == "users") return user(j, where);
    function(j, where);
  }

  static std::string name(const json& j, const std::string& where) {
    std::string n = str(j, "name", where, true);
    if (n.empty() || n.size() > 30 || n != toUpper(n) || n.find_first_of(" \t<>&'\"") != std::string::npos)
      fail(where, "\"" + n + "\" is no valid name: upper case, at most 30 characters, no blanks");
    return n;
  }

  void client(const json& j, const std::string& where) {
    ClientInfo c{str(j, "id", where, true), str(j, "text", where), str(j, "city", where), str(j, "currency", where)};
    if (c.id.size() != 3 || c.id.find_first_not_of("0123456789") != std::string::npos)
      fail(where, "a client is three digits");
    s_.users().addClient(c);
    ++sum_.clients;
  }

  void element(const json& j, const std::string& where) {
    s_.dictionary().addElement(name(j, where), str(j, "type", where, true), str(j, "text", where));
    ++sum_.elements;
  }

  std::vector<Dictionary::Field> fields(const json& j, const std::string& where) {
    if (!j.contains("fields") || !j["fields"].is_array() || j["fields"].empty())
      fail(where, "\"fields\" must be a non-empty array");
    std::vector<Dictionary::Field> out;
    size_t i = 0;
    for (const json& f : j["fields"]) {
      const std::string w = where + ".fields[" + std::to_string(i++) + "]";
      if (!f.is_object()) fail(w, "an object is expected");
      out.push_back({name(f, w), str(f, "type", w, true), str(f, "text", w)});
    }
    return out;
  }

  void structure(const json& j, const std::string& where) {
    s_.dictionary().addStructure(name(j, where), fields(j, where), str(j, "text", where));
    ++sum_.structures;
  }

  void tableType(const json& j, const std::string& where) {
    s_.dictionary().addTableType(name(j, where), str(j, "rowType", where, true), str(j, "text", where));
    ++sum_.tableTypes;
  }

  void table(const json& j, const std::string& where) {
    const std::string n = name(j, where);
    DbTable* t = s_.tables().findMutable(n);
    if (t && j.contains("fields"))
      fail(where, "table " + n + " exists already; leave out \"fields\" to add rows to it");
    if (!t) {
      if (!j.contains("fields")) fail(where, "table " + n + " does not exist; \"fields\" defines it");
      DbTable nt;
      nt.name = n;
      nt.type = s_.dictionary().addStructure(n, fields(j, where), str(j, "text", where));
      nt.keyFields = j.contains("keyFields") ? j["keyFields"].get<int>() : 1;
      if (nt.keyFields < 1 || nt.keyFields > static_cast<int>(nt.type->components.size()))
        fail(where, "\"keyFields\" must be between 1 and the number of fields");
      nt.clientDependent =
          j.contains("clientDependent") ? flag(j, "clientDependent", where) : nt.type->components[0].name == "MANDT";
      if (nt.clientDependent && nt.type->components[0].name != "MANDT")
        fail(where, "a client-dependent table needs MANDT as its first field");
      nt.restricted = flag(j, "restricted", where);
      t = &s_.tables().add(std::move(nt));
      ++sum_.tables;
    }
    if (j.contains("rows")) {
      const json& rows = j["rows"];
      if (!rows.is_array()) fail(where + ".rows", "an array is expected");
      const TypeDesc& rt = *t->type;
      for (size_t i = 0; i < rows.size(); ++i) {
        const std::string w = where + ".rows[" + std::to_string(i) + "]";
        const json& r = rows[i];
        Value row = initialValue(rt);
        if (r.is_array()) {
          if (r.size() > rt.components.size()) fail(w, "more values than fields");
          for (size_t k = 0; k < r.size(); ++k)
            row.items()[k] = fromJson(*rt.components[k].type, r[k], w + "[" + std::to_string(k) + "]");
        } else {
          row = fromJson(rt, r, w);
        }
        t->rows.push_back(std::move(row));
        ++sum_.rows;
      }
      t->sortByKey();
    }
  }

  void user(const json& j, const std::string& where) {
    User u;
    u.client = str(j, "client", where, true);
    if (!s_.users().hasClient(u.client)) fail(where, "client " + u.client + " does not exist");
    u.name = toUpper(str(j, "name", where, true));
    if (u.name.empty() || u.name.size() > 12) fail(where, "a user name has 1 to 12 characters");
    u.password = str(j, "password", where, true);
    u.locked = flag(j, "locked", where);
    u.passwordExpired = flag(j, "passwordExpired", where);
    if (j.contains("language")) {
      auto key = s_.users().languageKey(str(j, "language", where));
      if (!key) fail(where, "unknown language " + str(j, "language", where));
      u.language = *key;
    }
    u.fullName = str(j, "fullName", where);
    if (j.contains("allowedFunctions")) {
      if (!j["allowedFunctions"].is_array()) fail(where, "\"allowedFunctions\" must be an array of names");
      for (const json& f : j["allowedFunctions"]) u.allowedFunctions.push_back(plainText(f, where));
    }
    s_.users().addUser(u);
    ++sum_.users;
  }

  void function(const json& j, const std::string& where) {
    FunctionModule fm;
    fm.name = name(j, where);
    if (s_.functions().find(fm.name) && !flag(j, "replace", where))
      fail(where, "function module " + fm.name + " exists already; \"replace\": true replaces it");
    fm.group = str(j, "group", where);
    fm.text = str(j, "text", where);
    auto behaviour = std::make_shared<Behaviour>();
    const std::pair<const char*, Direction> groups[] = {{"importing", Direction::Importing},
                                                        {"exporting", Direction::Exporting},
                                                        {"changing", Direction::Changing},
                                                        {"tables", Direction::Tables}};
    for (const auto& [key, dir] : groups) {
      if (!j.contains(key)) continue;
      if (!j[key].is_array()) fail(where + "." + key, "an array is expected");
      size_t i = 0;
      for (const json& p : j[key]) {
        const std::string w = where + "." + key + "[" + std::to_string(i++) + "]";
        if (!p.is_object()) fail(w, "an object is expected");
        const std::string pname = name(p, w);
        if (fm.find(pname) >= 0) fail(w, "parameter " + pname + " appears twice");
        try {
          fm.params.push_back(s_.param(dir, pname, str(p, "type", w, true), flag(p, "optional", w),
                                       str(p, "default", w), str(p, "text", w)));
        } catch (const std::invalid_argument& e) {
          fail(w, e.what());
        }
        const std::string from = str(p, "from", w);
        if (!from.empty()) behaviour->from[pname] = from;
      }
    }
    if (j.contains("exceptions")) {
      if (!j["exceptions"].is_array()) fail(where + ".exceptions", "an array is expected");
      size_t i = 0;
      for (const json& e : j["exceptions"]) {
        const std::string w = where + ".exceptions[" + std::to_string(i++) + "]";
        if (e.is_string())
          fm.exceptions.push_back({e.get<std::string>(), ""});
        else if (e.is_object())
          fm.exceptions.push_back({name(e, w), str(e, "text", w)});
        else
          fail(w, "a name or an object is expected");
      }
    }
    for (const auto& [target, source] : behaviour->from) {
      const int s = fm.find(source), t = fm.find(target);
      if (s < 0) fail(where, "\"from\" of " + target + " names no parameter: " + source);
      if (fm.params[static_cast<size_t>(t)].direction == Direction::Importing)
        fail(where, "\"from\" belongs on an exporting, changing or tables parameter: " + target);
    }
    if (j.contains("behaviour")) {
      const json& b = j["behaviour"];
      const std::string w = where + ".behaviour";
      if (b.is_string()) {
        if (b.get<std::string>() != "echo") fail(w, "the only named behaviour is \"echo\"");
        behaviour->echo = true;
      } else if (b.is_object()) {
        behaviour->echo = flag(b, "echo", w);
        behaviour->otherwise = readOutcome(b, fm, w);
        if (b.contains("cases")) {
          if (!b["cases"].is_array()) fail(w + ".cases", "an array is expected");
          size_t i = 0;
          for (const json& c : b["cases"]) {
            const std::string cw = w + ".cases[" + std::to_string(i++) + "]";
            if (!c.is_object() || !c.contains("when") || !c["when"].is_object())
              fail(cw, "a case needs a \"when\" object of parameter values");
            Case cs;
            for (auto it = c["when"].begin(); it != c["when"].end(); ++it) {
              const int k = fm.find(it.key());
              if (k < 0) fail(cw + ".when", fm.name + " has no parameter " + it.key());
              cs.when[it.key()] =
                  fromJson(*fm.params[static_cast<size_t>(k)].type, it.value(), cw + ".when." + it.key());
            }
            cs.outcome = readOutcome(c, fm, cw);
            behaviour->cases.push_back(std::move(cs));
          }
        }
      } else {
        fail(w, "\"echo\" or an object is expected");
      }
    } else {
      behaviour->echo = !behaviour->from.empty();
    }
    fm.handler = [behaviour](CallContext& ctx) {
      if (behaviour->echo || !behaviour->from.empty()) {
        for (const auto& [target, source] : behaviour->from) {
          try {
            ctx[target] = carry(ctx.typeOf(source), ctx[source], ctx.typeOf(target));
          } catch (const ConversionError& e) {
            throw SystemFailure("CONVT_NO_NUMBER", "Cannot pass " + source + " to " + target + ": " + e.what());
          }
        }
      }
      for (const Case& c : behaviour->cases) {
        bool match = true;
        for (const auto& [param, value] : c.when)
          if (!(ctx[param] == value)) {
            match = false;
            break;
          }
        if (match) return apply(c.outcome, ctx);
      }
      apply(behaviour->otherwise, ctx);
    };
    s_.functions().add(std::move(fm));
    ++sum_.functions;
  }

  System& s_;
  DataDirSummary& sum_;
};

}  // namespace

DataDirSummary loadDataText(System& system, const std::string& text, const std::string& origin) {
  DataDirSummary sum;
  json doc;
  try {
    doc = json::parse(text, nullptr, true, true);
  } catch (const json::parse_error& e) {
    throw DataDirError(origin + ": " + e.what());
  }
  try {
    Loader(system, sum).load(doc, origin);
  } catch (const json::exception& e) {
    throw DataDirError(origin + ": " + e.what());
  }
  sum.files.push_back(origin);
  return sum;
}

DataDirSummary loadDataDir(System& system, const std::string& dir) {
  namespace fs = std::filesystem;
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) throw DataDirError(dir + ": not a directory");
  std::vector<fs::path> files;
  for (const auto& e : fs::directory_iterator(dir, ec))
    if (e.is_regular_file() && e.path().extension() == ".json") files.push_back(e.path());
  if (ec) throw DataDirError(dir + ": " + ec.message());
  std::sort(files.begin(), files.end());
  DataDirSummary total;
  for (const auto& f : files) {
    std::ifstream in(f, std::ios::binary);
    if (!in) throw DataDirError(f.string() + ": cannot be read");
    std::stringstream ss;
    ss << in.rdbuf();
    DataDirSummary s = loadDataText(system, ss.str(), f.filename().string());
    total.files.push_back(f.filename().string());
    total.elements += s.elements;
    total.structures += s.structures;
    total.tableTypes += s.tableTypes;
    total.tables += s.tables;
    total.rows += s.rows;
    total.users += s.users;
    total.clients += s.clients;
    total.functions += s.functions;
  }
  return total;
}

}  // namespace vsim
