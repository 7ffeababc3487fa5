// Our own declarations of the NW RFC SDK's published C interface (release 7.50) for Linux x86-64:
// characters, scalar types, enumerations, the structures with their exact layouts, handles and
// callbacks. The functions are declared in the generated nwrfc_functions.h, from entry_points.txt.
// The same declarations serve the product's NW back end, which loads the SDK at run time, and our
// own libsapnwrfc.so, which talks to veltrane-sim.
#pragma once

#include <cstddef>

#define NWRFC_API __attribute__((visibility("default")))

extern "C" {

// Characters: one UTF-16 code unit in native byte order.
typedef char16_t SAP_UC;
typedef SAP_UC SAP_CHAR;
typedef unsigned char SAP_RAW;

typedef SAP_UC RFC_CHAR;   // fixed length, blank-padded
typedef RFC_CHAR RFC_NUM;  // digits only, '0'-padded
typedef SAP_RAW RFC_BYTE;
typedef SAP_RAW RFC_BCD;  // packed decimal, read and written as text or as a double
typedef SAP_RAW RFC_INT1;
typedef short RFC_INT2;
typedef int RFC_INT;
typedef long RFC_INT8;
typedef long RFC_UTCLONG;
typedef double RFC_FLOAT;
typedef RFC_CHAR RFC_DATE[8];  // YYYYMMDD, no terminator
typedef RFC_CHAR RFC_TIME[6];  // HHMMSS, no terminator
typedef RFC_CHAR RFC_ABAP_NAME[30 + 1];
typedef RFC_CHAR RFC_PARAMETER_DEFVALUE[30 + 1];
typedef RFC_CHAR RFC_PARAMETER_TEXT[79 + 1];
typedef SAP_UC RFC_TID[24 + 1];
typedef SAP_UC RFC_UNITID[32 + 1];

// Four bytes, as the SDK passes it; a handler's status beyond the named
// codes (an unanswered transaction check: 65534) passes through unchanged.
enum RFC_RC : int {
  RFC_OK,
  RFC_COMMUNICATION_FAILURE,
  RFC_LOGON_FAILURE,
  RFC_ABAP_RUNTIME_FAILURE,
  RFC_ABAP_MESSAGE,
  RFC_ABAP_EXCEPTION,
  RFC_CLOSED,
  RFC_CANCELED,
  RFC_TIMEOUT,
  RFC_MEMORY_INSUFFICIENT,
  RFC_VERSION_MISMATCH,
  RFC_INVALID_PROTOCOL,
  RFC_SERIALIZATION_FAILURE,
  RFC_INVALID_HANDLE,
  RFC_RETRY,
  RFC_EXTERNAL_FAILURE,
  RFC_EXECUTED,
  RFC_NOT_FOUND,
  RFC_NOT_SUPPORTED,
  RFC_ILLEGAL_STATE,
  RFC_INVALID_PARAMETER,
  RFC_CODEPAGE_CONVERSION_FAILURE,
  RFC_CONVERSION_FAILURE,
  RFC_BUFFER_TOO_SMALL,
  RFC_TABLE_MOVE_BOF,
  RFC_TABLE_MOVE_EOF,
  RFC_START_SAPGUI_FAILURE,
  RFC_ABAP_CLASS_EXCEPTION,
  RFC_UNKNOWN_ERROR,
  RFC_AUTHORIZATION_FAILURE,
  RFC_AUTHENTICATION_FAILURE,
  RFC_CRYPTOLIB_FAILURE,
  RFC_IO_FAILURE,
  RFC_LOCKING_FAILURE,
  _RFC_RC_max_value
};

// The SDK's enumerators are bare global names (OK, LOGON_FAILURE...); here they are scoped.
enum class RFC_ERROR_GROUP : unsigned {
  OK,
  ABAP_APPLICATION_FAILURE,
  ABAP_RUNTIME_FAILURE,
  LOGON_FAILURE,
  COMMUNICATION_FAILURE,
  EXTERNAL_RUNTIME_FAILURE,
  EXTERNAL_APPLICATION_FAILURE,
  EXTERNAL_AUTHORIZATION_FAILURE,
  EXTERNAL_AUTHENTICATION_FAILURE,
  CRYPTOLIB_FAILURE,
  LOCKING_FAILURE
};

enum RFCTYPE {
  RFCTYPE_CHAR = 0,
  RFCTYPE_DATE = 1,
  RFCTYPE_BCD = 2,
  RFCTYPE_TIME = 3,
  RFCTYPE_BYTE = 4,
  RFCTYPE_TABLE = 5,
  RFCTYPE_NUM = 6,
  RFCTYPE_FLOAT = 7,
  RFCTYPE_INT = 8,
  RFCTYPE_INT2 = 9,
  RFCTYPE_INT1 = 10,
  RFCTYPE_NULL = 14,
  RFCTYPE_ABAPOBJECT = 16,
  RFCTYPE_STRUCTURE = 17,
  RFCTYPE_DECF16 = 23,
  RFCTYPE_DECF34 = 24,
  RFCTYPE_XMLDATA = 28,
  RFCTYPE_STRING = 29,
  RFCTYPE_XSTRING = 30,
  RFCTYPE_INT8 = 31,
  RFCTYPE_UTCLONG = 32,
  RFCTYPE_UTCSECOND = 33,
  RFCTYPE_UTCMINUTE = 34,
  RFCTYPE_DTDAY = 35,
  RFCTYPE_DTWEEK = 36,
  RFCTYPE_DTMONTH = 37,
  RFCTYPE_TSECOND = 38,
  RFCTYPE_TMINUTE = 39,
  RFCTYPE_CDAY = 40,
  RFCTYPE_BOX = 41,
  RFCTYPE_GENERIC_BOX = 42,
  _RFCTYPE_max_value
};

enum RFC_DIRECTION {
  RFC_IMPORT = 0x01,
  RFC_EXPORT = 0x02,
  RFC_CHANGING = RFC_IMPORT | RFC_EXPORT,
  RFC_TABLES = 0x04 | RFC_CHANGING
};

enum RFC_UNIT_STATE {
  RFC_UNIT_NOT_FOUND,
  RFC_UNIT_IN_PROCESS,
  RFC_UNIT_COMMITTED,
  RFC_UNIT_ROLLED_BACK,
  RFC_UNIT_CONFIRMED
};
enum RFC_CALL_TYPE { RFC_SYNCHRONOUS, RFC_TRANSACTIONAL, RFC_QUEUED, RFC_BACKGROUND_UNIT };
enum RFC_PROTOCOL_TYPE {
  RFC_UNKOWN,
  RFC_CLIENT,
  RFC_STARTED_SERVER,
  RFC_REGISTERED_SERVER,
  RFC_MULTI_COUNT_REGISTERED_SERVER,
  RFC_TCP_SOCKET_CLIENT,
  RFC_TCP_SOCKET_SERVER,
  RFC_WEBSOCKET_CLIENT,
  RFC_WEBSOCKET_SERVER,
  RFC_PROXY_WEBSOCKET_CLIENT
};

struct RFC_ERROR_INFO {
  RFC_RC code;
  RFC_ERROR_GROUP group;
  SAP_UC key[128];
  SAP_UC message[512];
  SAP_UC abapMsgClass[20 + 1];
  SAP_UC abapMsgType[1 + 1];
  RFC_NUM abapMsgNumber[3 + 1];
  SAP_UC abapMsgV1[50 + 1];
  SAP_UC abapMsgV2[50 + 1];
  SAP_UC abapMsgV3[50 + 1];
  SAP_UC abapMsgV4[50 + 1];
};

struct RFC_CONNECTION_PARAMETER {
  const SAP_UC* name;
  const SAP_UC* value;
};

struct RFC_ATTRIBUTES {
  SAP_UC dest[64 + 1];
  SAP_UC host[100 + 1];
  SAP_UC partnerHost[100 + 1];
  SAP_UC sysNumber[2 + 1];
  SAP_UC sysId[8 + 1];
  SAP_UC client[3 + 1];
  SAP_UC user[12 + 1];
  SAP_UC language[2 + 1];
  SAP_UC trace[1 + 1];
  SAP_UC isoLanguage[2 + 1];
  SAP_UC codepage[4 + 1];
  SAP_UC partnerCodepage[4 + 1];
  SAP_UC rfcRole[1 + 1];
  SAP_UC type[1 + 1];
  SAP_UC partnerType[1 + 1];
  SAP_UC rel[4 + 1];
  SAP_UC partnerRel[4 + 1];
  SAP_UC kernelRel[4 + 1];
  SAP_UC cpicConvId[8 + 1];
  SAP_UC progName[128 + 1];
  SAP_UC partnerBytesPerChar[1 + 1];
  SAP_UC partnerSystemCodepage[4 + 1];
  SAP_UC partnerIP[15 + 1];
  SAP_UC partnerIPv6[45 + 1];
  SAP_UC reserved[17];
};

struct RFC_SECURITY_ATTRIBUTES {
  SAP_UC* functionName;
  SAP_UC* sysId;
  SAP_UC* client;
  SAP_UC* user;
  SAP_UC* progName;
  SAP_UC* sncName;
  SAP_UC* ssoTicket;
  SAP_RAW* sncAclKey;
  unsigned sncAclKeyLength;
};

struct RFC_UNIT_IDENTIFIER {
  SAP_UC unitType;
  RFC_UNITID unitID;
};

// Handles: each a pointer to an opaque structure that callers only compare with null.
typedef struct RFC_CONNECTION_HANDLE_s {
  void* handle;
} * RFC_CONNECTION_HANDLE;
typedef struct RFC_FUNCTION_DESC_HANDLE_s {
  void* handle;
} * RFC_FUNCTION_DESC_HANDLE;
typedef struct RFC_TYPE_DESC_HANDLE_s {
  void* handle;
} * RFC_TYPE_DESC_HANDLE;
typedef struct RFC_TRANSACTION_HANDLE_s {
  void* handle;
} * RFC_TRANSACTION_HANDLE;
typedef struct RFC_UNIT_HANDLE_s {
  void* handle;
} * RFC_UNIT_HANDLE;
typedef struct RFC_SERVER_HANDLE_s {
  void* handle;
} * RFC_SERVER_HANDLE;
typedef struct RFC_THROUGHPUT_HANDLE_s {
  void* handle;
} * RFC_THROUGHPUT_HANDLE;
typedef struct RFC_DATA_CONTAINER {
  void* handle;
} * DATA_CONTAINER_HANDLE;
typedef DATA_CONTAINER_HANDLE RFC_FUNCTION_HANDLE;
typedef DATA_CONTAINER_HANDLE RFC_STRUCTURE_HANDLE;
typedef DATA_CONTAINER_HANDLE RFC_TABLE_HANDLE;
typedef DATA_CONTAINER_HANDLE RFC_ABAP_OBJECT_HANDLE;

struct RFC_FIELD_DESC {
  RFC_ABAP_NAME name;
  RFCTYPE type;
  unsigned nucLength;
  unsigned nucOffset;
  unsigned ucLength;
  unsigned ucOffset;
  unsigned decimals;
  RFC_TYPE_DESC_HANDLE typeDescHandle;
  void* extendedDescription;
};

struct RFC_PARAMETER_DESC {
  RFC_ABAP_NAME name;
  RFCTYPE type;
  RFC_DIRECTION direction;
  unsigned nucLength;
  unsigned ucLength;
  unsigned decimals;
  RFC_TYPE_DESC_HANDLE typeDescHandle;
  RFC_PARAMETER_DEFVALUE defaultValue;
  RFC_PARAMETER_TEXT parameterText;
  RFC_BYTE optional;
  void* extendedDescription;
};

struct RFC_EXCEPTION_DESC {
  SAP_UC key[128];
  SAP_UC message[512];
};

typedef RFC_RC (*RFC_SERVER_FUNCTION)(RFC_CONNECTION_HANDLE rfcHandle, RFC_FUNCTION_HANDLE funcHandle,
                                      RFC_ERROR_INFO* errorInfo);
typedef RFC_RC (*RFC_FUNC_DESC_CALLBACK)(const SAP_UC* functionName, RFC_ATTRIBUTES rfcAttributes,
                                         RFC_FUNCTION_DESC_HANDLE* funcDescHandle);
typedef RFC_RC (*RFC_ON_AUTHORIZATION_CHECK)(RFC_CONNECTION_HANDLE rfcHandle, RFC_SECURITY_ATTRIBUTES* secAttributes,
                                             RFC_ERROR_INFO* errorInfo);
typedef RFC_RC (*RFC_ON_CHECK_TRANSACTION)(RFC_CONNECTION_HANDLE rfcHandle, const SAP_UC* tid);
typedef RFC_RC (*RFC_ON_COMMIT_TRANSACTION)(RFC_CONNECTION_HANDLE rfcHandle, const SAP_UC* tid);
typedef RFC_RC (*RFC_ON_ROLLBACK_TRANSACTION)(RFC_CONNECTION_HANDLE rfcHandle, const SAP_UC* tid);
typedef RFC_RC (*RFC_ON_CONFIRM_TRANSACTION)(RFC_CONNECTION_HANDLE rfcHandle, const SAP_UC* tid);

}  // extern "C"

// Layouts as the SDK publishes them for Linux x86-64.
static_assert(sizeof(SAP_UC) == 2 && sizeof(RFC_INT8) == 8 && sizeof(RFC_UTCLONG) == 8);
static_assert(sizeof(RFC_RC) == 4 && sizeof(RFC_ERROR_GROUP) == 4 && sizeof(RFCTYPE) == 4 &&
              sizeof(RFC_DIRECTION) == 4);
static_assert(RFC_LOCKING_FAILURE == 33 && _RFC_RC_max_value == 34 && RFC_BUFFER_TOO_SMALL == 23);
static_assert(static_cast<unsigned>(RFC_ERROR_GROUP::LOCKING_FAILURE) == 10 && RFCTYPE_UTCLONG == 32);
static_assert(sizeof(RFC_ERROR_INFO) == 1752 && alignof(RFC_ERROR_INFO) == 4);
static_assert(offsetof(RFC_ERROR_INFO, key) == 8 && offsetof(RFC_ERROR_INFO, message) == 264);
static_assert(offsetof(RFC_ERROR_INFO, abapMsgClass) == 1288 && offsetof(RFC_ERROR_INFO, abapMsgType) == 1330);
static_assert(offsetof(RFC_ERROR_INFO, abapMsgNumber) == 1334 && offsetof(RFC_ERROR_INFO, abapMsgV1) == 1342);
static_assert(offsetof(RFC_ERROR_INFO, abapMsgV2) == 1444 && offsetof(RFC_ERROR_INFO, abapMsgV3) == 1546);
static_assert(offsetof(RFC_ERROR_INFO, abapMsgV4) == 1648);
static_assert(sizeof(RFC_CONNECTION_PARAMETER) == 16 && offsetof(RFC_CONNECTION_PARAMETER, value) == 8);
static_assert(sizeof(RFC_FIELD_DESC) == 104 && alignof(RFC_FIELD_DESC) == 8);
static_assert(offsetof(RFC_FIELD_DESC, type) == 64 && offsetof(RFC_FIELD_DESC, nucLength) == 68);
static_assert(offsetof(RFC_FIELD_DESC, nucOffset) == 72 && offsetof(RFC_FIELD_DESC, ucLength) == 76);
static_assert(offsetof(RFC_FIELD_DESC, ucOffset) == 80 && offsetof(RFC_FIELD_DESC, decimals) == 84);
static_assert(offsetof(RFC_FIELD_DESC, typeDescHandle) == 88 && offsetof(RFC_FIELD_DESC, extendedDescription) == 96);
static_assert(sizeof(RFC_PARAMETER_DESC) == 328 && alignof(RFC_PARAMETER_DESC) == 8);
static_assert(offsetof(RFC_PARAMETER_DESC, type) == 64 && offsetof(RFC_PARAMETER_DESC, direction) == 68);
static_assert(offsetof(RFC_PARAMETER_DESC, nucLength) == 72 && offsetof(RFC_PARAMETER_DESC, ucLength) == 76);
static_assert(offsetof(RFC_PARAMETER_DESC, decimals) == 80 && offsetof(RFC_PARAMETER_DESC, typeDescHandle) == 88);
static_assert(offsetof(RFC_PARAMETER_DESC, defaultValue) == 96 && offsetof(RFC_PARAMETER_DESC, parameterText) == 158);
static_assert(offsetof(RFC_PARAMETER_DESC, optional) == 318 &&
              offsetof(RFC_PARAMETER_DESC, extendedDescription) == 320);
static_assert(sizeof(RFC_ATTRIBUTES) == 1118 && alignof(RFC_ATTRIBUTES) == 2);
static_assert(offsetof(RFC_ATTRIBUTES, host) == 130 && offsetof(RFC_ATTRIBUTES, partnerHost) == 332);
static_assert(offsetof(RFC_ATTRIBUTES, sysNumber) == 534 && offsetof(RFC_ATTRIBUTES, sysId) == 540);
static_assert(offsetof(RFC_ATTRIBUTES, client) == 558 && offsetof(RFC_ATTRIBUTES, user) == 566);
static_assert(offsetof(RFC_ATTRIBUTES, language) == 592 && offsetof(RFC_ATTRIBUTES, trace) == 598);
static_assert(offsetof(RFC_ATTRIBUTES, isoLanguage) == 602 && offsetof(RFC_ATTRIBUTES, codepage) == 608);
static_assert(offsetof(RFC_ATTRIBUTES, partnerCodepage) == 618 && offsetof(RFC_ATTRIBUTES, rfcRole) == 628);
static_assert(offsetof(RFC_ATTRIBUTES, type) == 632 && offsetof(RFC_ATTRIBUTES, partnerType) == 636);
static_assert(offsetof(RFC_ATTRIBUTES, rel) == 640 && offsetof(RFC_ATTRIBUTES, partnerRel) == 650);
static_assert(offsetof(RFC_ATTRIBUTES, kernelRel) == 660 && offsetof(RFC_ATTRIBUTES, cpicConvId) == 670);
static_assert(offsetof(RFC_ATTRIBUTES, progName) == 688 && offsetof(RFC_ATTRIBUTES, partnerBytesPerChar) == 946);
static_assert(offsetof(RFC_ATTRIBUTES, partnerSystemCodepage) == 950 && offsetof(RFC_ATTRIBUTES, partnerIP) == 960);
static_assert(offsetof(RFC_ATTRIBUTES, partnerIPv6) == 992 && offsetof(RFC_ATTRIBUTES, reserved) == 1084);
static_assert(sizeof(RFC_SECURITY_ATTRIBUTES) == 72 && alignof(RFC_SECURITY_ATTRIBUTES) == 8);
static_assert(offsetof(RFC_SECURITY_ATTRIBUTES, ssoTicket) == 48 && offsetof(RFC_SECURITY_ATTRIBUTES, sncAclKey) == 56);
static_assert(offsetof(RFC_SECURITY_ATTRIBUTES, sncAclKeyLength) == 64);
static_assert(sizeof(RFC_EXCEPTION_DESC) == 1280 && offsetof(RFC_EXCEPTION_DESC, message) == 256);
static_assert(sizeof(RFC_UNIT_IDENTIFIER) == 68);
static_assert(sizeof(RFC_CONNECTION_HANDLE) == sizeof(void*) && sizeof(DATA_CONTAINER_HANDLE) == sizeof(void*));
