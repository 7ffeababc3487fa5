// SOAP 1.1 request and response documents of the RFC service, in the form an ABAP system writes.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/system.h"

namespace vsim::soap {

inline constexpr const char* kEnvelopeNs = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr const char* kEncodingNs = "http://schemas.xmlsoap.org/soap/encoding/";
inline constexpr const char* kRfcNs = "urn:sap-com:document:sap:rfc:functions";
inline constexpr const char* kSoapFunctionsNs = "urn:sap-com:document:sap:soap:functions";

// A request the service refuses before any module runs (bad XML, no envelope, no function element).
class SoapFault : public std::runtime_error {
 public:
  SoapFault(std::string code, std::string text) : std::runtime_error(text), code_(std::move(code)) {}
  const std::string& code() const { return code_; }  // Client, Server, VersionMismatch

 private:
  std::string code_;
};

struct SoapRequest {
  std::string function;       // with '/' restored from "_-"
  std::string prefix;         // prefix of the function element, echoed on the response
  std::vector<char> present;  // per parameter: its element was in the request
};

// Parses a request against the system's modules. Throws SoapFault for a document that is not a
// request, SystemFailure for an unknown module or a value that does not convert.
// The call is returned through `call`, created by System::prepare.
SoapRequest parseRequest(System& system, const std::string& body, std::unique_ptr<Call>& call);

std::string buildResponse(const SoapRequest& request, const Call& call);
std::string buildExceptionFault(const std::string& function, const AbapException& e);
std::string buildSystemFault(const SystemFailure& e);
std::string buildSoapFault(const SoapFault& e);

// Element names: '/' in an ABAP name is "_-" in XML.
std::string xmlName(const std::string& abapName);
std::string abapName(const std::string& xmlName);
// Text content escaped as the system writes it: & < > " ' as numeric character references.
void appendEscaped(std::string& out, const std::string& text);

}  // namespace vsim::soap
