#include "backend_nwrfc.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <regex>
#include <vector>

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

constexpr const char* kLibrary = "libsapnwrfc.so";

bool isFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string fromEnv(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

// name=value, the value quoted when the SDK's tokenizer would split it.
std::string pair(const std::string& name, const std::string& value) {
  if (value.find_first_of(" \"\\") == std::string::npos) return name + "=" + value;
  std::string quoted = name + "=\"";
  for (char c : value) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

std::string programDirectory() {
  std::vector<char> buffer(4096);
  const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
  if (n <= 0) return {};
  std::string path(buffer.data(), static_cast<size_t>(n));
  return path.substr(0, path.rfind('/'));
}

// The file the loader finds for library by its own search, or "".
std::string loaderFinds(const char* library) {
  void* module = dlopen(library, RTLD_LAZY | RTLD_LOCAL);
  if (!module) return {};
  std::string path = library;
  link_map* map = nullptr;
  if (dlinfo(module, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name && *map->l_name) path = map->l_name;
  dlclose(module);
  return path;
}

// Whether the connect string text names one of the parameters.
bool names(const std::string& text, const char* alternatives) {
  return std::regex_search(text, std::regex(std::string(R"((^|\s)()") + alternatives + ")=", std::regex::icase));
}

}  // namespace

void readNwRfc(const ParsedArgs& args, ConnectionSettings& s) {
  const std::string dest = args.valueOr("sdk-dest", "");
  const std::string extra = trim(args.valueOr("connect", ""));
  if (args.has("sdk-dest") && dest.empty()) throw UsageError("option --sdk-dest: the destination is empty");
  // The host of --host stands in unless something else says where to go.
  std::string ashost = args.valueOr("ashost", "");
  if (ashost.empty() && (args.has("host") || (dest.empty() && !names(extra, "ashost|mshost|gwhost|dest"))))
    ashost = s.host;
  std::string sysnr = args.valueOr("sysnr", fromEnv("VELTRANE_SYSNR"));
  const std::string gwserv = args.valueOr("gwserv", fromEnv("VELTRANE_GWSERV"));
  if (!sysnr.empty() && (sysnr.size() != 2 || sysnr.find_first_not_of("0123456789") != std::string::npos))
    throw UsageError("option --sysnr: '" + sysnr + "' is not a system number (two digits)");
  if (sysnr.empty() && gwserv.empty() && !ashost.empty() && !names(extra, "sysnr|gwserv|mshost|dest")) sysnr = "00";

  std::vector<std::string> pairs;
  if (!dest.empty()) pairs.push_back(pair("dest", dest));
  if (!ashost.empty()) pairs.push_back(pair("ashost", ashost));
  if (!sysnr.empty()) pairs.push_back(pair("sysnr", sysnr));
  if (!gwserv.empty()) pairs.push_back(pair("gwserv", gwserv));
  if (!extra.empty()) pairs.push_back(extra);
  s.connectString.clear();
  for (const std::string& p : pairs) s.connectString += (s.connectString.empty() ? "" : " ") + p;
  s.iniPath = args.valueOr("ini", "");
  if (args.has("ini") && s.iniPath.empty()) throw UsageError("option --ini: the path is empty");
  s.sdkDir = args.valueOr("sdk", "");
  if (args.has("sdk") && s.sdkDir.empty()) throw UsageError("option --sdk: the directory is empty");
}

std::string findSdk(const SdkSearch& sdk, std::string* note) {
  const std::string library = sdk.library;
  const std::string home = fromEnv(sdk.homeVariable);
  if (!home.empty() && isFile(home + "/lib/" + library)) {
    *note = std::string("using the ") + sdk.label + " " + home + "/lib/" + library + " ($" + sdk.homeVariable + ")";
    return home + "/lib";
  }
  if (const std::string found = loaderFinds(sdk.library); !found.empty()) {
    *note = std::string("using the ") + sdk.label + " " + found + " (found by the loader)";
    return {};
  }
  const std::string usual = sdk.usualDirectory;
  if (isFile(usual + "/" + library)) {
    *note = std::string("using the ") + sdk.label + " " + usual + "/" + library;
    return usual;
  }
  std::string own = programDirectory() + "/../lib/veltrane/" + sdk.ownDirectory;
  if (isFile(own + "/" + library)) {
    if (char* real = realpath(own.c_str(), nullptr)) {
      own = real;
      std::free(real);
    }
    *note = std::string("no ") + sdk.label + " of SAP's found: using Veltrane's own " + own + "/" + library +
            ", which talks to veltrane-sim";
    return own;
  }
  *note = std::string("no ") + sdk.label + " found: install it or name its directory with --sdk (see " + sdk.doc + ")";
  return {};
}

std::string findNwRfcSdk(std::string* note) {
  return findSdk({kLibrary, "SAPNWRFC_HOME", "/usr/local/sap/nwrfcsdk/lib", "nwrfcsdk", "NW RFC SDK", "docs/nwrfc.md"},
                 note);
}

void configureSdkSession(ISession* session, const ConnectionSettings& s, std::string (*find)(std::string*),
                         const char* pathOption) {
  CComQIPtr<IRfcSession> rfc(session);
  if (!rfc) throw ComFailure("reading the connection data", E_NOINTERFACE, "the session is no RFC session");
  CComPtr<IRfcSystemData> system;
  check(rfc->get_RfcSystemData(&system), "reading the connection data");
  check(system->put_ConnectString(bstr(s.connectString)), "setting the connect string");
  std::string directory = s.sdkDir;
  if (directory.empty()) {
    std::string note;
    directory = find(&note);
    std::cerr << "veltrane: " << note << "\n";
  }
  if (!directory.empty()) check(session->put_Option(bstr(pathOption), bstr(directory)), "setting the SDK directory");
}

void configureNwRfc(ISession* session, const ConnectionSettings& s) {
  configureSdkSession(session, s, findNwRfcSdk, "nwrfc.path");
  if (!s.iniPath.empty())
    check(session->put_Option(bstr("nwrfc.ini_path"), bstr(s.iniPath)), "setting the SDK's ini file");
}

std::string maskedConnectString(const ConnectionSettings& s) {
  static const std::regex password(R"((^|\s)(passwd=)("(\\.|[^"\\])*"|\S*))", std::regex::icase);
  return std::regex_replace(s.connectString, password, "$1$2***");
}

std::string nwrfcAddress(const ConnectionSettings& s) { return "nwrfc: " + maskedConnectString(s); }

std::string nwrfcPlace(const ConnectionSettings& s) {
  static const std::regex dest(R"((^|\s)dest=(\S+))", std::regex::icase),
      host(R"((^|\s)ashost=(\S+))", std::regex::icase), nr(R"((^|\s)sysnr=(\S+))", std::regex::icase),
      gw(R"((^|\s)gwserv=(\S+))", std::regex::icase);
  std::smatch m;
  if (std::regex_search(s.connectString, m, dest)) return m[2];
  std::string place = std::regex_search(s.connectString, m, host) ? std::string(m[2]) : s.host;
  if (std::regex_search(s.connectString, m, nr)) return place + "/" + std::string(m[2]);
  if (std::regex_search(s.connectString, m, gw)) return place + ":" + std::string(m[2]);
  return place;
}

}  // namespace veltrane::cli
