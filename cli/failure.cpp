#include "failure.h"

#include <cstdio>
#include <iostream>

#include "text.h"

namespace veltrane::cli {

RfcFailure::RfcFailure(std::string context, long group, std::string key, std::string message, std::string module)
    : std::runtime_error(context + " failed: " + key + ": " + message),
      context_(std::move(context)),
      group_(group),
      key_(std::move(key)),
      message_(std::move(message)),
      module_(std::move(module)) {}

ComFailure::ComFailure(std::string context, HRESULT hr, std::string description)
    : std::runtime_error(context + " failed: " + description),
      context_(std::move(context)),
      hr_(hr),
      description_(std::move(description)) {}

std::string errorGroupName(long group) {
  const char* name = ErrorGroupName(group);
  return name ? name : "unknown group";
}

namespace {

std::string hex(HRESULT hr) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(hr));
  return buf;
}

std::string recordText(HRESULT hr) {
  CComPtr<IErrorInfo> info;
  std::string text;
  if (GetErrorInfo(0, &info) == S_OK && info) {
    CComBSTR description;
    if (SUCCEEDED(info->GetDescription(&description)) && description.Length() > 0) text = utf8(description);
  }
  if (text.empty()) {
    switch (hr) {
      case E_INVALIDARG: text = "invalid argument"; break;
      case E_POINTER: text = "null pointer"; break;
      case E_NOTIMPL: text = "not implemented by this back end"; break;
      case E_UNEXPECTED: text = "unexpected element"; break;
      default: text = "the operation failed"; break;
    }
  }
  return text;
}

template <class Source>
[[noreturn]] void throwRecorded(Source* source, const std::string& context) {
  CComPtr<IRfcError> info;
  ERRORGROUP group = RFCERROR_NO_ERROR;
  CComBSTR key, message, module;
  if (SUCCEEDED(source->get_ErrorInfo(&info)) && info) {
    info->get_ERRORGROUP(&group);
    info->get_ErrorGroupTxt(&key);
    info->get_Message(&message);
    info->get_ModuleName(&module);
  }
  throw RfcFailure(context, group, utf8(key), utf8(message), utf8(module));
}

}  // namespace

void check(HRESULT hr, const std::string& context) {
  if (FAILED(hr)) throw ComFailure(context, hr, recordText(hr));
}

void checkSession(HRESULT hr, ISession* session, const std::string& context) {
  // The record belongs to the failing call: take it before asking the session anything.
  std::string description;
  if (FAILED(hr)) description = recordText(hr);
  VARIANT_BOOL error = VARIANT_FALSE;
  if (session && SUCCEEDED(session->get_Error(&error)) && error) throwRecorded(session, context);
  if (FAILED(hr)) throw ComFailure(context, hr, description);
}

void checkReader(HRESULT hr, ITableReader* reader, const std::string& context) {
  std::string description;
  if (FAILED(hr)) description = recordText(hr);
  VARIANT_BOOL error = VARIANT_FALSE;
  if (reader && SUCCEEDED(reader->get_Error(&error)) && error) throwRecorded(reader, context);
  if (FAILED(hr)) throw ComFailure(context, hr, description);
}

// Continuation lines of a multi-line text start under its first line.
static std::string indented(const std::string& text) {
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '\n') out += "           ";
  }
  while (!out.empty() && (out.back() == ' ' || out.back() == '\n')) out.pop_back();
  return out;
}

int reportFailure(const std::exception& e) {
  if (const auto* rfc = dynamic_cast<const RfcFailure*>(&e)) {
    std::cerr << "veltrane: " << rfc->context() << " failed\n"
              << "  group:   " << errorGroupName(rfc->group()) << " (" << rfc->group() << ")\n"
              << "  key:     " << indented(rfc->key()) << "\n"
              << "  message: " << indented(rfc->message()) << "\n";
    if (!rfc->module().empty()) std::cerr << "  module:  " << rfc->module() << "\n";
    return kExitFailure;
  }
  if (const auto* com = dynamic_cast<const ComFailure*>(&e)) {
    std::cerr << "veltrane: " << com->context() << " failed: " << com->description() << " (" << hex(com->result())
              << ")\n";
    if (com->result() == TextResult(Text::Unexpected))
      std::cerr << "  (repeat with --trace FILE to see the cause in the trace)\n";
    return kExitFailure;
  }
  if (dynamic_cast<const UsageError*>(&e)) {
    std::cerr << "veltrane: " << e.what() << "\n";
    return kExitUsage;
  }
  std::cerr << "veltrane: " << e.what() << "\n";
  return kExitFailure;
}

}  // namespace veltrane::cli
