// The messages of the RFC protocol: what each frame kind carries besides its values section, and
// their encoders and decoders. A values section follows the head of Invoke, Result, Exception,
// Call, CallResult and CallException; see values.h.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "rfc_protocol/codec.h"
#include "rfc_protocol/frame.h"

namespace vsim::proto {

// Ordered name=value pairs: logon parameters, connection and caller attributes.
using Pairs = std::vector<std::pair<std::string, std::string>>;
// The value of the first pair named `name` (exact match), or empty.
std::string pairValue(const Pairs& pairs, std::string_view name);

void writePairs(Writer& w, const Pairs& pairs);
Pairs readPairs(Reader& r);

// Logon and Register open a connection: the magic, the protocol version, then the parameters.
struct OpenRequest {
  std::uint16_t version = kVersion;
  Pairs params;
};
void writeOpen(Writer& w, const OpenRequest& m);
// The name of this process's program file, for the `program` parameter of a logon.
std::string programName();
OpenRequest readOpen(Reader& r);

// LogonOk: the version the system speaks and the attributes of the connection.
struct OpenReply {
  std::uint16_t version = kVersion;
  Pairs attributes;
};
void writeOpenReply(Writer& w, const OpenReply& m);
OpenReply readOpenReply(Reader& r);

// Result codes and error groups carried in errors: the numbers of the NW RFC SDK's RFC_RC and
// RFC_ERROR_GROUP (the SDK library checks them against its declarations).
namespace rc {
inline constexpr std::uint8_t kOk = 0, kCommunicationFailure = 1, kLogonFailure = 2, kAbapRuntimeFailure = 3,
                              kAbapMessage = 4, kAbapException = 5, kClosed = 6, kInvalidProtocol = 11,
                              kExternalFailure = 15, kExecuted = 16, kNotFound = 17, kAuthorizationFailure = 29;
}
namespace group {
inline constexpr std::uint8_t kOk = 0, kAbapApplication = 1, kAbapRuntime = 2, kLogon = 3, kCommunication = 4,
                              kExternalRuntime = 5, kExternalApplication = 6, kExternalAuthorization = 7;
}

// Outcome of a call that did not succeed: rc and group as above. `closes` tells that the system
// ends the connection after this reply.
struct ErrorInfo {
  std::uint8_t rc = 0;
  std::uint8_t group = 0;
  std::string key;
  std::string message;
  std::string msgClass, msgType, msgNumber;
  std::array<std::string, 4> msgVars;
  bool closes = false;
};
void writeError(Writer& w, const ErrorInfo& e);
ErrorInfo readError(Reader& r);

// Descriptions. A type refers to the types of its fields by their position in the list + 1
// (0: none); a type is always listed after the types it refers to.
struct FieldInfo {
  std::string name;
  WireType type = WireType::Char;
  std::uint32_t nucLength = 0, nucOffset = 0, ucLength = 0, ucOffset = 0, decimals = 0;
  std::uint32_t typeRef = 0;
};
struct TypeInfo {
  std::string name;
  std::uint32_t nucLength = 0, ucLength = 0;
  std::vector<FieldInfo> fields;
};
enum class Direction : std::uint8_t { Import = 1, Export = 2, Changing = 3, Tables = 7 };
struct ParameterInfo {
  std::string name;
  WireType type = WireType::Char;
  Direction direction = Direction::Import;
  std::uint32_t nucLength = 0, ucLength = 0, decimals = 0;
  std::uint32_t typeRef = 0;
  std::string defaultValue, text;
  bool optional = false;
};
struct ExceptionInfo {
  std::string key, text;
};
struct FunctionInfo {
  std::string name;
  std::vector<TypeInfo> types;
  std::vector<ParameterInfo> parameters;
  std::vector<ExceptionInfo> exceptions;
};
void writeFunctionInfo(Writer& w, const FunctionInfo& f);
FunctionInfo readFunctionInfo(Reader& r);
// TypeDesc: the type list; the requested type is the last one.
void writeTypeList(Writer& w, const std::vector<TypeInfo>& types);
std::vector<TypeInfo> readTypeList(Reader& r);

// Invoke: the function, the parameters the caller does not want back, then the values section.
struct InvokeHead {
  std::string function;
  std::vector<std::string> inactive;
};
void writeInvokeHead(Writer& w, const InvokeHead& m);
InvokeHead readInvokeHead(Reader& r);

// Transaction: a transaction ID, a queue name (empty for tRFC), then `count` units each made of an
// InvokeHead and its values section.
struct TransactionHead {
  std::string tid;
  std::string queue;
  std::uint32_t count = 0;
};
void writeTransactionHead(Writer& w, const TransactionHead& m);
TransactionHead readTransactionHead(Reader& r);

// Call from the system to a registered program: synchronous or transactional, the caller's
// attributes, then the values section.
enum class CallType : std::uint8_t { Synchronous = 0, Transactional = 1 };
struct CallHead {
  CallType type = CallType::Synchronous;
  std::string tid;
  std::string function;
  Pairs attributes;
};
void writeCallHead(Writer& w, const CallHead& m);
CallHead readCallHead(Reader& r);

// CallResult: whether a transactional call had been executed before (the program's check said
// so), then the values section.
void writeCallResultHead(Writer& w, bool executedBefore);
bool readCallResultHead(Reader& r);

// A text of up to `max` bytes (for names, IDs and keys, which are short in any system).
std::string readShortText(Reader& r, size_t max = 4096);

}  // namespace vsim::proto
