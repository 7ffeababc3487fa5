// veltrane serve: a registered RFC server whose calls are answered by
// commands. Each call of FUNCTION runs its COMMAND (through /bin/sh) with
// the importing and changing values as one JSON object on standard input;
// the JSON object the command prints fills exporting, changing and tables.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include <veltrane/event_sink.h>

#include "backend_nwrfc.h"
#include "backend_rfc.h"
#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "parameter_sets.h"
#include "text.h"
#include "values.h"

namespace veltrane::cli {

namespace {

volatile std::sig_atomic_t g_stop = 0;
void onSignal(int) { g_stop = 1; }

// What a command gave for one call.
struct Outcome {
  bool ok = false;
  Json result;            // on success
  std::string exception;  // an ABAP exception the command raised
  std::string message;    // its text, or why the command failed
};

// Runs command with input on its standard input; its standard output is the
// result. A crash, a failed start or output that is no JSON object is a
// failure; a non-zero exit with {"exception": NAME} raises NAME.
Outcome runCommand(const std::string& command, const std::string& input) {
  Outcome out;
  int in[2], from[2];
  if (::pipe(in) != 0 || ::pipe(from) != 0) {
    out.message = std::string("pipe: ") + std::strerror(errno);
    return out;
  }
  const pid_t pid = ::fork();
  if (pid < 0) {
    out.message = std::string("fork: ") + std::strerror(errno);
    return out;
  }
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(from[1], 1);
    ::close(in[0]);
    ::close(in[1]);
    ::close(from[0]);
    ::close(from[1]);
    ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(from[1]);
  // The input is written from a thread of its own, so that a command that
  // prints before it has read everything cannot block the server.
  std::thread writer([fd = in[1], &input] {
    size_t done = 0;
    while (done < input.size()) {
      const ssize_t n = ::write(fd, input.data() + done, input.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    ::close(fd);
  });
  std::string output;
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(from[0], buffer, sizeof buffer);
    if (n > 0) {
      output.append(buffer, static_cast<size_t>(n));
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break;
    }
  }
  ::close(from[0]);
  writer.join();
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
  if (WIFSIGNALED(status)) {
    out.message = "the command ended by signal " + std::to_string(WTERMSIG(status));
    return out;
  }
  Json parsed;
  try {
    parsed = trim(output).empty() ? Json::object() : Json::parse(output);
  } catch (const std::exception&) {
    out.message = "the command's output is no JSON";
    return out;
  }
  if (!parsed.is_object()) {
    out.message = "the command's output is no JSON object";
    return out;
  }
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (code != 0) {
    if (parsed.contains("exception") && parsed["exception"].is_string()) {
      out.exception = upperAscii(parsed["exception"].get<std::string>());
      if (parsed.contains("message") && parsed["message"].is_string()) out.message = parsed["message"];
    } else {
      out.message = "the command exited with " + std::to_string(code);
    }
    return out;
  }
  out.ok = true;
  out.result = std::move(parsed);
  return out;
}

// The values of the importing and changing (and tables) parameters as one object.
Json inputOf(IFunctionCall* call) {
  Json input = Json::object();
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables}) {
    forEachParameter(parameterGroup(call, get), [&](IRfcParameter* p, const std::string& name) {
      CComPtr<IRfcField> field;
      check(p->get_InternalField(&field), "reading a parameter");
      input[name] = fieldToJson(field);
    });
  }
  return input;
}

// Puts each value of the command's result into the exporting, changing or
// tables parameter of its name.
void assignResult(IFunctionCall* call, const Json& result) {
  for (const auto& [name, value] : result.items()) {
    CComPtr<IRfcParameter> p;
    for (auto get : {&IFunctionCall::get_Exporting, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables}) {
      CComPtr<IRfcParameters> set = parameterGroup(call, get);
      VARIANT_BOOL has = VARIANT_FALSE;
      if (SUCCEEDED(set->HasKey(bstr(name), &has)) && has == VARIANT_TRUE) {
        check(set->get_Item(CComVariant(bstr(name)), &p), "reading parameter " + name);
        break;
      }
    }
    if (!p) throw UsageError("the result names " + name + ", which the function does not send back");
    CComPtr<IRfcField> field;
    check(p->get_InternalField(&field), "reading parameter " + name);
    jsonToField(field, value, name);
  }
}

// The sink of the server's events, in the command's apartment.
class Handlers : public CEventSink {
 public:
  explicit Handlers(std::map<std::string, std::string> commands)
      : CEventSink(DIID__RfcServerEvents), commands_(std::move(commands)) {}

  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    if (!params || params->cArgs != 1 || params->rgvarg[0].vt != VT_DISPATCH) return DISP_E_BADPARAMCOUNT;
    IDispatch* argument = params->rgvarg[0].pdispVal;
    if (id == 1) {
      CComQIPtr<IFunctionCall> call(argument);
      if (call) return serve(call);
    } else if (id == 2) {
      CComQIPtr<IRfcServerLogonInfo> info(argument);
      CComBSTR user;
      if (info) info->get_User(&user);
      user_ = utf8(user);
    } else if (id == 3) {
      CComQIPtr<IRfcServerErrorInfo> info(argument);
      if (info) reconnect(info);
    } else if (id == 4) {
      // Each transaction runs; the command keeps no record of IDs.
      CComQIPtr<IRfcTransactionInfo> info(argument);
      if (info) info->put_Status(0);
    } else if (id == 5) {
      CComQIPtr<IRfcTransactionInfo> info(argument);
      if (info) info->put_Status(0);
    }
    return S_OK;
  }

 private:
  // Answers one call; a failure of the command fails the call (failCall).
  HRESULT serve(IFunctionCall* call) {
    const auto start = std::chrono::steady_clock::now();
    CComBSTR name;
    call->get_Function(&name);
    const std::string function = utf8(name);
    std::string line;
    HRESULT result = S_OK;
    auto it = commands_.find(function);
    if (it == commands_.end()) {
      result = failCall(call);
      line = "failed: no command serves it";
    } else {
      try {
        const Outcome out = runCommand(it->second, inputOf(call).dump() + "\n");
        if (out.ok) {
          assignResult(call, out.result);
          line = "ok";
          backoffMs_ = kFirstBackoffMs;
        } else if (!out.exception.empty()) {
          call->RaiseException(bstr(out.exception), bstr(out.message));
          line = "exception " + out.exception;
        } else {
          result = failCall(call);
          line = "failed: " + out.message;
        }
      } catch (const std::exception& e) {
        result = failCall(call);
        line = std::string("failed: ") + e.what();
      }
    }
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    std::cerr << "serve: " << function << " for " << (user_.empty() ? "?" : user_) << ": " << line << " (" << ms
              << " ms)" << std::endl;
    return result;
  }

  // Makes the server answer the call with a system failure (docs/server.md):
  // NWRfcServer fails a call whose handler fails; RfcServer absorbs that and
  // fails a call whose answer it cannot send, here a parameter without a
  // type. Either SDK then ends the connection, and reconnect registers the
  // program again at once.
  HRESULT failCall(IFunctionCall* call) {
    CComPtr<IRfcParameters> exporting;
    if (SUCCEEDED(call->get_Exporting(&exporting)) && exporting)
      exporting->AddParameter(bstr("SYSTEM_FAILURE"), nullptr);
    failedCall_ = true;
    return E_FAIL;
  }

  // A lost gateway: register again after a pause that doubles up to 30 s
  // (and starts afresh after a call that worked).
  // After a call this program failed, the SDK's end of the connection is
  // expected, and the program registers again at once.
  void reconnect(IRfcServerErrorInfo* info) {
    CComBSTR message;
    info->get_Message(&message);
    std::cerr << "serve: the gateway connection ended: " << utf8(message) << std::endl;
    if (failedCall_) {
      failedCall_ = false;
    } else {
      const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(backoffMs_);
      while (!g_stop && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      backoffMs_ = std::min(backoffMs_ * 2, 30000L);
    }
    if (!g_stop) {
      std::cerr << "serve: registering again" << std::endl;
      info->put_Restart(VARIANT_TRUE);
    } else {
      info->put_Restart(VARIANT_FALSE);
    }
  }

  std::map<std::string, std::string> commands_;
  static constexpr long kFirstBackoffMs = 500;

  std::string user_;
  long backoffMs_ = kFirstBackoffMs;
  bool failedCall_ = false;
};

CComPtr<IFunctionCall> interfaceFromFile(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw UsageError("option --interface: cannot read " + path);
  std::stringstream text;
  text << in.rdbuf();
  // FunctionCall is no creatable class: a session makes calls, connected or not.
  CComPtr<ISession> session;
  check(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISession,
                         reinterpret_cast<void**>(&session)),
        "creating a session");
  CComPtr<IFunctionCall> call;
  check(session->CreateCall(&call), "creating a function call");
  if (FAILED(call->FromXML(bstr(text.str())))) throw UsageError("option --interface: " + path + " is no interface");
  return call;
}

int runServe(const ParsedArgs& args) {
  std::map<std::string, std::string> commands;
  for (const std::string& p : args.positionals()) {
    const size_t eq = p.find('=');
    if (eq == std::string::npos || eq == 0 || eq + 1 == p.size())
      throw UsageError("'" + p + "' is no FUNCTION=COMMAND");
    commands[upperAscii(p.substr(0, eq))] = p.substr(eq + 1);
  }
  if (commands.empty()) throw UsageError("serve needs at least one FUNCTION=COMMAND");
  const std::string backend = args.valueOr("backend", "nwrfc");
  if (backend != "nwrfc" && backend != "rfc") throw UsageError("option --backend: serve takes nwrfc or rfc");
  const auto programId = args.value("program-id");
  if (!programId || programId->empty()) throw UsageError("serve needs --program-id");
  const CLSID& clsid = backend == "nwrfc" ? CLSID_NWRfcServer : CLSID_RfcServer;
  CComPtr<IRfcServer> server;
  if (FAILED(
          CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRfcServer, reinterpret_cast<void**>(&server))) ||
      !server)
    throw UsageError("option --backend: this build has no " + backend + " server");
  // The client connection for the dictionary goes over the same back end.
  const ConnectionSettings settings = connectionSettings(args);

  // The interfaces: from files, else from the system's dictionary.
  std::vector<CComPtr<IFunctionCall>> interfaces;
  for (const std::string& file : args.values("interface")) interfaces.push_back(interfaceFromFile(file));
  std::set<std::string> described;
  for (const auto& call : interfaces) {
    CComBSTR name;
    call->get_Function(&name);
    described.insert(upperAscii(utf8(name)));
  }
  std::vector<std::string> missing;
  for (const auto& [function, command] : commands)
    if (!described.count(function)) missing.push_back(function);
  if (!missing.empty()) {
    Connection connection(settings);
    for (const std::string& function : missing) interfaces.push_back(connection.importCall(function));
    connection.close();
  }

  if (backend == "nwrfc") {
    std::string sdk = settings.sdkDir;
    if (sdk.empty()) {
      std::string note;
      sdk = findNwRfcSdk(&note);
    }
    if (!sdk.empty()) check(server->put_Option(bstr("nwrfc.path"), bstr(sdk)), "setting the SDK's directory");
    if (!settings.iniPath.empty()) check(server->put_Option(bstr("nwrfc.ini_path"), bstr(settings.iniPath)), "");
  } else {
    std::string sdk = settings.sdkDir;
    if (sdk.empty()) {
      std::string note;
      sdk = findRfcSdk(&note);
    }
    if (!sdk.empty()) check(server->put_Option(bstr("librfc.path"), bstr(sdk)), "setting the SDK's directory");
  }
  if (!settings.traceFile.empty()) check(server->put_Option(bstr("trace.file"), bstr(settings.traceFile)), "");
  const std::string gwhost = args.valueOr("gwhost", settings.host);
  const std::string gwserv = args.valueOr("gwserv", "sapgw00");
  check(server->put_ProgramID(bstr(*programId)), "setting the program ID");
  check(server->put_GatewayHost(bstr(gwhost)), "setting the gateway");
  check(server->put_GatewayService(bstr(gwserv)), "setting the gateway");
  for (const auto& call : interfaces) check(server->InstallFunction(call), "installing a function");

  CComPtr<IDispatch> sink;
  sink.Attach(new Handlers(commands));
  CComQIPtr<IConnectionPointContainer> container(server);
  CComPtr<IConnectionPoint> point;
  DWORD cookie = 0;
  check(container ? container->FindConnectionPoint(DIID__RfcServerEvents, &point) : E_NOINTERFACE,
        "finding the server's events");
  check(point->Advise(sink, &cookie), "subscribing to the server's events");

  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  // The classic server's Serve succeeds in all cases: a failed start shows
  // in IsListening and ErrorInfo.
  const HRESULT served = server->Serve();
  VARIANT_BOOL listening = VARIANT_FALSE;
  server->get_IsListening(&listening);
  if (FAILED(served) || listening != VARIANT_TRUE) {
    CComPtr<IRfcServerErrorInfo> info;
    server->get_ErrorInfo(&info);
    CComBSTR key, message;
    LONG group = 0;
    if (info) {
      info->get_ErrorGroupTxt(&key);
      info->get_Message(&message);
      ERRORGROUP g = RFCERROR_NO_ERROR;
      info->get_ERRORGROUP(&g);
      group = g;
    }
    throw RfcFailure("registering " + *programId + " at " + gwhost + "/" + gwserv, group, utf8(key), utf8(message), "");
  }
  std::cerr << "serve: " << *programId << " registered at " << gwhost << "/" << gwserv << std::endl;
  while (!g_stop) CoPumpMessages(100);

  // Shut down from another thread while this apartment pumps: a call still
  // on its way here finishes first.
  std::cerr << "serve: shutting down" << std::endl;
  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    server->Shutdown();
    stopped = true;
  });
  while (!stopped) CoPumpMessages(50);
  stopper.join();
  point->Unadvise(cookie);
  return kExitOk;
}

}  // namespace

Command serveCommand() {
  return {"serve",
          "FUNCTION=COMMAND ...",
          "serve function calls of the system by running commands (a registered server)",
          "Registers --program-id at the gateway (--gwhost, default the host; --gwserv,\n"
          "default sapgw00) and answers each call of FUNCTION by running COMMAND through\n"
          "/bin/sh. The command reads the importing, changing and tables values as one\n"
          "JSON object on standard input and prints one JSON object whose members fill\n"
          "exporting, changing and tables parameters. Exiting non-zero after printing\n"
          "{\"exception\": \"NAME\"} raises the ABAP exception NAME; a crash or output that is\n"
          "no JSON object answers with a system failure, and the server registers again\n"
          "at once and serves on. The interface of FUNCTION comes from --interface FILE (its XML form, as\n"
          "describe prints it) or from the system's dictionary over a client connection\n"
          "of the usual options. A dropped gateway is registered again after a pause that\n"
          "doubles up to 30 seconds. SIGINT and SIGTERM end the server cleanly. Each call\n"
          "writes one line to standard error.",
          {{"program-id", "ID", "program ID to register at the gateway"},
           {"gwhost", "HOST", "gateway host (default: --host)"},
           {"interface", "FILE", "interface of a function in its XML form", true}},
          false,
          runServe};
}

}  // namespace veltrane::cli
