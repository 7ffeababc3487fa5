// Our own declarations of the classic RFC SDK's published C interface, Unicode flavour, for Linux
// x86-64: characters, scalar types, enumerations, the structures with their exact layouts, handles
// and callbacks. The functions are declared in the generated rfc_functions.h, from entry_points.txt;
// the library exports them with the suffix "U" (RfcOpenExU, ItCreateU...).
//
// The classic interface reuses names of the NW RFC SDK (RFC_RC, RFC_PARAMETER, RFCTYPE...) with
// other meanings, so everything here lives in namespace veltrane::sdk::rfc; the functions keep their
// C names. The same declarations serve the product's classic back end, which loads the SDK at run
// time, and our own librfcum.so, which talks to veltrane-sim.
#pragma once

#include <cstddef>

#define RFC_API __attribute__((visibility("default")))

namespace veltrane::sdk::rfc {

extern "C" {

// Characters: one UTF-16 code unit in native byte order (wchar_t is 4 bytes on Linux).
typedef char16_t SAP_UC;
typedef SAP_UC SAP_CHAR;
typedef SAP_UC rfc_char_t;
typedef unsigned char SAP_RAW;
typedef int SAP_INT;
typedef unsigned SAP_UINT;

typedef SAP_UC RFC_CHAR;   // fixed length, blank-padded
typedef RFC_CHAR RFC_NUM;  // digits only, '0'-padded
typedef unsigned char RFC_BYTE;
typedef unsigned char RFC_BCD;  // packed decimal: two digits a byte, the sign in the last half-byte
typedef unsigned char RFC_INT1;
typedef short RFC_INT2;
typedef int RFC_INT;
typedef double RFC_FLOAT;
typedef RFC_CHAR RFC_DATE[8];       // YYYYMMDD, no terminator
typedef RFC_CHAR RFC_TIME[6];       // HHMMSS, no terminator
typedef unsigned char* RFC_STRING;  // zero-terminated UTF-8, also in the Unicode library

typedef unsigned RFC_HANDLE;  // a connection; 0 is none
typedef unsigned RFC_TYPEHANDLE;
inline constexpr RFC_HANDLE RFC_HANDLE_NULL = 0;

typedef void* ITAB_H;  // an internal table
typedef void* RFC_TYPE_HEAD;
inline constexpr ITAB_H ITAB_NULL = nullptr;

typedef rfc_char_t RFC_TID[24 + 1];
typedef rfc_char_t RFC_FUNCTIONNAME[30 + 1];
typedef rfc_char_t RFC_QNAME[24 + 1];
typedef RFC_BYTE RFC_STRUCT_TYPE_ID[16];

enum RFC_RC {
  RFC_OK,
  RFC_FAILURE,
  RFC_EXCEPTION,
  RFC_SYS_EXCEPTION,  // the connection is closed
  RFC_CALL,           // the partner called back
  RFC_INTERNAL_COM,
  RFC_CLOSED,
  RFC_RETRY,  // no data yet
  RFC_NO_TID,
  RFC_EXECUTED,
  RFC_SYNCHRONIZE,
  RFC_MEMORY_INSUFFICIENT,
  RFC_VERSION_MISMATCH,
  RFC_NOT_FOUND,
  RFC_CALL_NOT_SUPPORTED,
  RFC_NOT_OWNER,
  RFC_NOT_INITIALIZED,
  RFC_SYSTEM_CALLED,
  RFC_INVALID_HANDLE,
  RFC_INVALID_PARAMETER,
  RFC_CANCELED,
  RFC_CONVERSION,
  RFC_INVALID_PROTOCOL,
  RFC_TIMEOUT
};

enum RFC_ERROR_GROUP {
  RFC_ERROR_PROGRAM = 101,
  RFC_ERROR_COMMUNICATION = 102,
  RFC_ERROR_LOGON_FAILURE = 103,
  RFC_ERROR_SYSTEM_FAILURE = 104,
  RFC_ERROR_APPLICATION_EXCEPTION = 105,
  RFC_ERROR_RESOURCE = 106,
  RFC_ERROR_PROTOCOL = 107,
  RFC_ERROR_INTERNAL = 108,
  RFC_ERROR_CANCELLED = 109,  // a registered server was cancelled
  RFC_ERROR_BUSY = 110
};

enum RFC_CANCEL_TYPE {
  RFC_CANCEL_HARD,   // the user context goes, the connection stays
  RFC_CANCEL_SOFT,   // the user context is kept if possible
  RFC_CANCEL_CLOSE,  // the connection is closed
};

enum RFC_ITMODE { RFC_ITMODE_BYREFERENCE, RFC_ITMODE_BYVALUE, RFC_ITMODE_KEEPALIVE };

enum RFC_EXTERNAL_LOGON_RC { RFC_EXTERNAL_LOGON_OK, RFC_EXTERNAL_LOGON_FAILED };

// The first codes equal the ABAP type letters' codes.
enum RFCTYPE {
  RFCTYPE_CHAR = 0,
  RFCTYPE_DATE = 1,
  RFCTYPE_BCD = 2,
  RFCTYPE_TIME = 3,
  RFCTYPE_BYTE = 4,
  RFCTYPE_ITAB = 5,
  RFCTYPE_NUM = 6,
  RFCTYPE_FLOAT = 7,
  RFCTYPE_INT = 8,
  RFCTYPE_INT2 = 9,
  RFCTYPE_INT1 = 10,
  RFCTYPE_DATE_1 = 12,
  RFCTYPE_DATE_2 = 13,
  RFCTYPE_NULL = 14,
  RFCTYPE_WIDE_2 = 15,
  RFCTYPE_WIDE_4 = 16,
  RFCTYPE_STRUCTURE = 17,
  RFCTYPE_ABAP4OBJECT = 18,
  RFCTYPE_IUNKNOWN = 19,
  RFCTYPE_WSTRING = 20,
  RFCTYPE_SAPAUTOMATION = 21,
  RFCTYPE_STUB = 22,
  RFCTYPE_WIRE_OBJECT = 23,
  RFCTYPE_BLOB = 24,
  RFCTYPE_CORBA_OBJECT = 25,
  RFCTYPE_PADDING = 26,
  RFCTYPE_UNICODE = 27,
  RFCTYPE_XMLDATA = 28,
  RFCTYPE_STRING = 29,
  RFCTYPE_XSTRING = 30
};

// A scalar or structure parameter; arrays of them end with an entry whose name is null.
struct RFC_PARAMETER {
  RFC_CHAR* name;
  unsigned nlen;  // characters
  RFC_TYPEHANDLE type;
  unsigned leng;  // bytes
  void* addr;
};

// A table parameter; arrays of them end with an entry whose name is null.
struct RFC_TABLE {
  RFC_CHAR* name;
  unsigned nlen;        // characters
  RFC_TYPEHANDLE type;  // of a row
  unsigned leng;        // bytes of a row
  ITAB_H ithandle;
  RFC_ITMODE itmode;
  int newitab;  // set by RfcGetData
};

// A field of an installed structure: lengths and offsets in bytes for 1-, 2- and 4-byte characters.
struct RFC_UNICODE_TYPE_ELEMENT {
  rfc_char_t* name;
  RFC_TYPEHANDLE type;
  unsigned decimals;
  unsigned c1_length;
  unsigned c1_offset;
  unsigned c2_length;
  unsigned c2_offset;
  unsigned c4_length;
  unsigned c4_offset;
};

// A field for RfcInstallStructure: the library places the fields itself (see docs/rfc_sdk.md).
struct RFC_TYPE_ELEMENT {
  rfc_char_t* name;
  RFC_TYPEHANDLE type;
  unsigned length;  // bytes
  unsigned decimals;
};

struct RFC_ERROR_INFO_EX {
  RFC_ERROR_GROUP group;
  RFC_CHAR key[33];
  RFC_CHAR message[513];
};

struct RFC_XSTRING {
  RFC_INT length;
  RFC_BYTE* content;
};

struct RFC_EXTERNAL_LOGON_CNTL {
  rfc_char_t function_name[31];
  rfc_char_t client[4];
  rfc_char_t language[2];
  rfc_char_t user[13];
  rfc_char_t tcode[21];
  rfc_char_t reserved[513];
};

// A row of RfcGetStructureInfoAsTable.
struct RFC_U_FIELDS {
  SAP_CHAR Tabname[30];
  SAP_CHAR Fieldname[30];
  SAP_INT Position;
  SAP_CHAR Exid[1];
  SAP_INT Decimals;
  SAP_INT Offset_b1;
  SAP_INT Length_b1;
  SAP_INT Offset_b2;
  SAP_INT Length_b2;
  SAP_INT Offset_b4;
  SAP_INT Length_b4;
};

// A row of RfcGetFunctionInfoAsTable. Paramclass: I, E, C, T, or X for an exception.
struct RFC_U_FUNINT {
  SAP_CHAR Paramclass[1];
  SAP_CHAR Parameter[30];
  SAP_CHAR Tabname[30];
  SAP_CHAR Fieldname[30];
  SAP_CHAR Exid[1];
  SAP_INT Position;
  SAP_INT Offset_b1;
  SAP_INT Length_b1;
  SAP_INT Offset_b2;
  SAP_INT Length_b2;
  SAP_INT Offset_b4;
  SAP_INT Length_b4;
  SAP_INT Decimals;
  SAP_CHAR Default[21];
  SAP_CHAR Paramtext[79];
  SAP_CHAR Optional[1];
};

// Callbacks: the plain C convention on Linux.
typedef RFC_RC (*RFC_ONCALL)(RFC_HANDLE handle);
typedef int (*RFC_ON_CHECK_TID)(RFC_TID tid);  // 0 go on, 1 already done, < 0 cannot lock
typedef void (*RFC_ON_COMMIT)(RFC_TID tid);
typedef void (*RFC_ON_ROLLBACK)(RFC_TID tid);
typedef void (*RFC_ON_CONFIRM_TID)(RFC_TID tid);
typedef int (*RFC_ON_CHECK_TID_EX)(RFC_TID tid, RFC_HANDLE handle);
typedef int (*RFC_ON_COMMIT_EX)(RFC_TID tid, RFC_HANDLE handle);  // 0 committed
typedef void (*RFC_ON_ROLLBACK_EX)(RFC_TID tid, RFC_HANDLE handle, int validHandle);
typedef void (*RFC_ON_CONFIRM_TID_EX)(RFC_TID tid, RFC_HANDLE handle);
typedef RFC_EXTERNAL_LOGON_RC (*RFC_EXTERNAL_LOGON)(RFC_HANDLE handle, RFC_EXTERNAL_LOGON_CNTL* control,
                                                    rfc_char_t* message);  // message: 256 characters at most
typedef void (*RFC_ON_DISCONNECT)(RFC_HANDLE handle, unsigned reserved, void* context);
typedef void (*RFC_ON_FREE)(RFC_HANDLE handle, unsigned reserved, void* context);
typedef void (*RFC_ERROR_HANDLER)(rfc_char_t* errorId);
typedef void* (*RFC_ALLOCATE)(void* old, unsigned long size);

struct RFC_ENV {
  RFC_ERROR_HANDLER errorhandler;
  RFC_ALLOCATE allocate;
};

}  // extern "C"

static_assert(sizeof(SAP_UC) == 2 && sizeof(RFC_HANDLE) == 4 && sizeof(RFC_TYPEHANDLE) == 4);
static_assert(sizeof(RFC_RC) == 4 && sizeof(RFCTYPE) == 4 && sizeof(RFC_ITMODE) == 4);
static_assert(RFC_TIMEOUT == 23 && RFC_RETRY == 7 && RFC_CANCELED == 20 && RFC_SYSTEM_CALLED == 17);
static_assert(RFCTYPE_XSTRING == 30 && RFCTYPE_STRING == 29 && RFCTYPE_STRUCTURE == 17);
static_assert(sizeof(RFC_TID) == 50 && sizeof(RFC_FUNCTIONNAME) == 62 && sizeof(RFC_STRUCT_TYPE_ID) == 16);
static_assert(offsetof(RFC_PARAMETER, nlen) == 8 && offsetof(RFC_PARAMETER, type) == 12);
static_assert(offsetof(RFC_PARAMETER, leng) == 16 && offsetof(RFC_PARAMETER, addr) == 24);
static_assert(sizeof(RFC_PARAMETER) == 32);
static_assert(offsetof(RFC_TABLE, nlen) == 8 && offsetof(RFC_TABLE, type) == 12 && offsetof(RFC_TABLE, leng) == 16);
static_assert(offsetof(RFC_TABLE, ithandle) == 24 && offsetof(RFC_TABLE, itmode) == 32);
static_assert(offsetof(RFC_TABLE, newitab) == 36 && sizeof(RFC_TABLE) == 40);
static_assert(offsetof(RFC_UNICODE_TYPE_ELEMENT, type) == 8 && offsetof(RFC_UNICODE_TYPE_ELEMENT, decimals) == 12);
static_assert(offsetof(RFC_UNICODE_TYPE_ELEMENT, c1_length) == 16 &&
              offsetof(RFC_UNICODE_TYPE_ELEMENT, c2_length) == 24);
static_assert(offsetof(RFC_UNICODE_TYPE_ELEMENT, c4_offset) == 36 && sizeof(RFC_UNICODE_TYPE_ELEMENT) == 40);
static_assert(offsetof(RFC_ERROR_INFO_EX, key) == 4 && offsetof(RFC_ERROR_INFO_EX, message) == 70);
static_assert(sizeof(RFC_ERROR_INFO_EX) == 1096);
static_assert(offsetof(RFC_XSTRING, content) == 8 && sizeof(RFC_XSTRING) == 16);
static_assert(offsetof(RFC_EXTERNAL_LOGON_CNTL, client) == 62 && offsetof(RFC_EXTERNAL_LOGON_CNTL, language) == 70);
static_assert(offsetof(RFC_EXTERNAL_LOGON_CNTL, user) == 74 && offsetof(RFC_EXTERNAL_LOGON_CNTL, tcode) == 100);
static_assert(offsetof(RFC_EXTERNAL_LOGON_CNTL, reserved) == 142 && sizeof(RFC_EXTERNAL_LOGON_CNTL) == 1168);
static_assert(offsetof(RFC_U_FIELDS, Position) == 120 && offsetof(RFC_U_FIELDS, Exid) == 124);
static_assert(offsetof(RFC_U_FIELDS, Decimals) == 128 && sizeof(RFC_U_FIELDS) == 156);
static_assert(offsetof(RFC_U_FUNINT, Exid) == 182 && offsetof(RFC_U_FUNINT, Position) == 184);
static_assert(offsetof(RFC_U_FUNINT, Decimals) == 212 && offsetof(RFC_U_FUNINT, Default) == 216);
static_assert(offsetof(RFC_U_FUNINT, Paramtext) == 258 && offsetof(RFC_U_FUNINT, Optional) == 416);
static_assert(sizeof(RFC_U_FUNINT) == 420);

}  // namespace veltrane::sdk::rfc
