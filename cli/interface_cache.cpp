#include "interface_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "backends.h"
#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

std::string safeName(const std::string& text) {
  std::string out;
  for (char c : text) {
    const bool ok =
        (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
    out += ok ? c : '_';
  }
  return out;
}

bool readText(const std::string& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  text = s.str();
  return !in.bad();
}

void makeDirectories(const std::string& path) {
  for (size_t at = 1; at != std::string::npos;) {
    at = path.find('/', at + 1);
    ::mkdir(path.substr(0, at).c_str(), 0700);
  }
}

// Writes beside and renames, so that a reader never sees half a file. A
// cache that cannot be written costs the next run the import, nothing else.
void store(const std::string& directory, const std::string& path, const std::string& text) {
  makeDirectories(directory);
  const std::string temporary = path + "." + std::to_string(::getpid()) + ".tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) {
      ::unlink(temporary.c_str());
      return;
    }
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) ::unlink(temporary.c_str());
}

CComPtr<IFunctionCall> fromXml(Connection& connection, const std::string& xml, const std::string& origin) {
  CComPtr<IFunctionCall> call;
  check(connection.session()->CreateCall(&call), "creating a call");
  if (!call) throw ComFailure("creating a call", E_POINTER, "no call object returned");
  check(call->FromXML(bstr(xml)), "reading the interface in " + origin);
  return call;
}

}  // namespace

std::string interfaceCacheDirectory(const ConnectionSettings& settings) {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  std::string base;
  if (cache && *cache) {
    base = cache;
  } else {
    const char* home = std::getenv("HOME");
    base = std::string(home && *home ? home : ".") + "/.cache";
  }
  const Backend& backend = backendNamed(settings.backend);
  return base + "/veltrane/" + safeName(backend.name + "-" + backend.place(settings)) + "/" + safeName(settings.client);
}

CComPtr<IFunctionCall> functionInterface(Connection& connection, const std::string& function,
                                         const InterfaceSource& source) {
  std::string xml;
  if (!source.file.empty()) {
    if (!readText(source.file, xml)) throw UsageError("option --interface: cannot read '" + source.file + "'");
    CComPtr<IFunctionCall> call = fromXml(connection, xml, source.file);
    CComBSTR name;
    check(call->get_Function(&name), "reading the function of the interface");
    if (upperAscii(utf8(name)) != function)
      throw UsageError("option --interface: '" + source.file + "' describes " + utf8(name) + ", not " + function);
    return call;
  }
  const std::string directory = interfaceCacheDirectory(connection.settings());
  const std::string path = directory + "/" + safeName(function) + ".xml";
  if (!source.refresh && readText(path, xml)) {
    try {
      return fromXml(connection, xml, path);
    } catch (const ComFailure&) {
      // A damaged copy is imported again below.
    }
  }
  CComPtr<IFunctionCall> call = connection.importCall(function);
  CComBSTR text;
  check(call->ToXML(&text), "writing the interface of " + function + " as XML");
  store(directory, path, utf8(text));
  return call;
}

}  // namespace veltrane::cli
