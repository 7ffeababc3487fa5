// Data elements and structures of the standard system.
#include "engine/system.h"

namespace vsim {

namespace {

using F = Dictionary::Field;

void elements(Dictionary& d) {
  struct E {
    const char* name;
    const char* type;
    const char* text;
  };
  static const E list[] = {
      {"MANDT", "C3", "Client"},
      {"SPRAS", "C1", "Language Key"},
      {"LAISO", "C2", "2-Character SAP Language Code"},
      {"XUBNAME", "C12", "User Name in User Master Record"},
      {"TABNAME", "C30", "Table Name"},
      {"FIELDNAME", "C30", "Field Name"},
      {"ROLLNAME", "C30", "Data element (semantic domain)"},
      {"DDTEXT", "C60", "Short Description of Repository Objects"},
      {"AS4TEXT", "C60", "Short Description of Repository Objects"},
      {"FLAG", "C1", "General Flag"},
      {"CHAR1", "C1", "Single-Character Flag"},
      {"INT4", "I", "Natural Number"},
      {"RS38L_FNAM", "C30", "Name of Function Module"},
      {"S_CARR_ID", "C3", "Airline Code"},
      {"S_CARRNAME", "C20", "Airline name"},
      {"S_CURRCODE", "C5", "Local currency of airline"},
      {"S_CARRURL", "C255", "Airline URL"},
      {"S_CONN_ID", "N4", "Flight Connection Number"},
      {"LAND1", "C3", "Country Key"},
      {"S_FROM_CIT", "C20", "Departure city"},
      {"S_FROMAIRP", "C3", "Departure airport"},
      {"S_TO_CITY", "C20", "Arrival city"},
      {"S_TOAIRP", "C3", "Destination airport"},
      {"S_FLTIME", "I", "Flight time"},
      {"S_DEP_TIME", "T", "Departure time"},
      {"S_ARR_TIME", "T", "Arrival time"},
      {"S_DISTANCE", "P5.4", "Distance"},
      {"S_DISTID", "C3", "Mass unit of distance (kms, miles)"},
      {"S_FLTYPE", "C1", "Flight type"},
      {"S_PERIOD", "INT1", "Arrival n day(s) later"},
      {"S_DATE", "D", "Flight date"},
      {"S_PRICE", "P8.2", "Airfare"},
      {"S_PLANETYE", "C10", "Aircraft Type"},
      {"S_SEATSMAX", "I", "Maximum capacity in economy class"},
      {"S_SEATSOCC", "I", "Occupied seats in economy class"},
      {"S_SUM", "P9.2", "Total of current bookings"},
      {"S_SMAX_B", "I", "Maximum capacity in business class"},
      {"S_SOCC_B", "I", "Occupied seats in business class"},
      {"S_SMAX_F", "I", "Maximum capacity in first class"},
      {"S_SOCC_F", "I", "Occupied seats in first class"},
      {"WAERS", "C5", "Currency Key"},
      {"ISOCD", "C3", "ISO currency code"},
      {"ALTWR", "N3", "Alternative key for currencies"},
      {"GDATU_CUR", "C8", "Date until which the currency is valid"},
      {"LTEXT", "C40", "Long Text"},
      {"KTEXT_CURT", "C15", "Description"},
      {"BAPI_MTYPE", "C1", "Message type: S Success, E Error, W Warning, I Info, A Abort"},
      {"SYMSGID", "C20", "Message Class"},
      {"SYMSGNO", "N3", "Message Number"},
      {"BAPI_MSG", "C220", "Message Text"},
      {"BALOGNR", "C20", "Application log: log number"},
      {"BALMNR", "N6", "Application log: Internal message serial number"},
      {"SYMSGV", "C50", "Message Variable"},
      {"BAPI_PARAM", "C32", "Parameter Name"},
      {"BAPI_FLD", "C30", "Field in parameter"},
      {"BAPILOGSYS", "C10", "Logical system from which message originates"},
      {"BAPICUREXT", "P12.4", "Currency amount in BAPI interfaces"},
      {"S_CURR_ISO", "C3", "ISO currency code"},
      {"TE_STRUC", "C30", "Structure name of BAPI table extension"},
      {"VALUEPART", "C240", "Data part of BAPI extension parameter"},
      {"SO_TEXT255", "C255", "Text line"},
      {"PASSWORD", "C40", "Password"},
      {"XUNCODE", "C40", "Password"},
      {"BAPIMAXROW", "I", "Maximum number of lines of hits"},
      {"CHAR72", "C72", "Character string with 72 characters"},
      {"CHAR512", "C512", "Character string with 512 characters"},
      {"BAPIWAIT", "C1", "Use of command 'COMMIT AND WAIT'"},
  };
  for (const auto& e : list) d.addElement(e.name, e.type, e.text);
}

void structures(Dictionary& d) {
  d.addStructure("SYST",
                 {{"SUBRC", "I", "Return value of ABAP statements"},
                  {"TABIX", "I", "Index of internal tables"},
                  {"DBCNT", "I", "Processed database table rows"},
                  {"MANDT", "MANDT"},
                  {"LANGU", "SPRAS"},
                  {"UNAME", "XUBNAME"},
                  {"DATUM", "D", "Current date of application server"},
                  {"UZEIT", "T", "Current time of application server"},
                  {"SYSID", "C8", "Name of the SAP system"},
                  {"SAPRL", "C4", "Release of the SAP system"},
                  {"HOST", "C32", "Name of application server"},
                  {"MSGID", "SYMSGID"},
                  {"MSGTY", "C1", "Message type"},
                  {"MSGNO", "SYMSGNO"},
                  {"MSGV1", "SYMSGV"},
                  {"MSGV2", "SYMSGV"},
                  {"MSGV3", "SYMSGV"},
                  {"MSGV4", "SYMSGV"},
                  {"LISEL", "C255", "Interact.: Selected line"}},
                 "ABAP System Fields");
  d.addStructure("DD02L",
                 {{"TABNAME", "TABNAME"},
                  {"AS4LOCAL", "C1", "Activation Status of a Repository Object"},
                  {"AS4VERS", "N4", "Version of the entry (not used)"},
                  {"TABCLASS", "C8", "Table Category"}},
                 "SAP Tables");
  d.addStructure("SONV", {{"FLAG", "FLAG"}}, "Flags");
  d.addStructure("SOID", {{"ACCNT", "I", "Counter"}}, "Counters");
  d.addStructure("RFC_DB_OPT", {{"TEXT", "CHAR72", "Text field of length 72"}}, "Description of a WHERE clause");
  d.addStructure("RFC_DB_FLD",
                 {{"FIELDNAME", "FIELDNAME"},
                  {"OFFSET", "N6", "Offset of a field"},
                  {"LENGTH", "N6", "Length (No. of Characters)"},
                  {"TYPE", "C1", "ABAP data type (C,D,N,...)"},
                  {"FIELDTEXT", "AS4TEXT", "Short Description of Repository Objects"}},
                 "Description of a field in a table");
  d.addStructure("TAB512", {{"WA", "CHAR512"}}, "DATA of a row of length 512");
  d.addStructure("RFC_FUNINT",
                 {{"PARAMCLASS", "C1", "Parameter type"},
                  {"PARAMETER", "C30", "Parameter name"},
                  {"TABNAME", "TABNAME"},
                  {"FIELDNAME", "FIELDNAME"},
                  {"EXID", "C1", "ABAP data type"},
                  {"POSITION", "I", "Position of field in the structure"},
                  {"OFFSET", "I", "Field offset"},
                  {"INTLENGTH", "I", "Internal length of field"},
                  {"DECIMALS", "I", "Number of decimal places"},
                  {"DEFAULT", "C21", "Default value for import parameter"},
                  {"PARAMTEXT", "C79", "Short text"},
                  {"OPTIONAL", "C1", "Optional parameter"}},
                 "Interface description of a function module");
  d.addStructure("RSEXC", {{"EXCEPTION", "C30", "Name of a resumable exception"}}, "Resumable exceptions");
  d.addStructure("RFC_FLDS_U",
                 {{"TABNAME", "TABNAME"},
                  {"FIELDNAME", "FIELDNAME"},
                  {"POSITION", "I", "Position of field in the structure"},
                  {"EXID", "C1", "ABAP data type"},
                  {"DECIMALS", "I", "Number of decimal places"},
                  {"OFFSET_B1", "I", "Offset with one byte per character"},
                  {"LENGTH_B1", "I", "Length with one byte per character"},
                  {"OFFSET_B2", "I", "Offset with two bytes per character"},
                  {"LENGTH_B2", "I", "Length with two bytes per character"},
                  {"OFFSET_B4", "I", "Offset with four bytes per character"},
                  {"LENGTH_B4", "I", "Length with four bytes per character"}},
                 "Fields of a structure in all character layouts");
  d.addStructure("X030L",
                 {{"TABNAME", "TABNAME"},
                  {"TABTYPE", "C1", "Type: T table, S structure, L table type"},
                  {"TABFORM", "C1", "Table form: T transparent, J structure"},
                  {"REFNAME", "C30", "Name of the row type of a table type"},
                  {"UUID", "X16", "Unique identifier"},
                  {"FIELDCOUNT", "INT2", "Number of fields"},
                  {"KEYCOUNT", "INT2", "Number of key fields"},
                  {"KEYLEN", "I", "Length of the key"},
                  {"TABLEN", "I", "Length of a row"},
                  {"UNIFLAG", "C1", "Unicode flag"}},
                 "Nametab header");
  d.addStructure("X031L",
                 {{"TABNAME", "TABNAME"},
                  {"FIELDNAME", "FIELDNAME"},
                  {"DTELNAME", "ROLLNAME"},
                  {"POSITION", "I", "Position of the field"},
                  {"OFFSET", "I", "Offset of the field"},
                  {"DBLENGTH", "I", "Length of the field"},
                  {"DECIMALS", "I", "Number of decimal places"},
                  {"EXID", "C1", "ABAP data type"},
                  {"KEYFLAG", "C1", "Key field"}},
                 "Nametab field description");
  d.addStructure("RFCSI",
                 {{"RFCPROTO", "C3", "RFC log version"},
                  {"RFCCHARTYP", "C4", "Code page"},
                  {"RFCINTTYP", "C3", "Integer format"},
                  {"RFCFLOTYP", "C3", "Floating point format"},
                  {"RFCDEST", "C32", "Logical destination"},
                  {"RFCHOST", "C8", "Host name"},
                  {"RFCSYSID", "C8", "System ID"},
                  {"RFCDATABS", "C8", "Database name"},
                  {"RFCDBHOST", "C32", "Database host"},
                  {"RFCDBSYS", "C10", "Database system"},
                  {"RFCSAPRL", "C4", "SAP release"},
                  {"RFCMACH", "C5", "Machine ID"},
                  {"RFCOPSYS", "C10", "Operating system"},
                  {"RFCTZONE", "C6", "Time zone difference to UTC in seconds"},
                  {"RFCDAYST", "C1", "Daylight saving time"},
                  {"RFCIPADDR", "C15", "IP address"},
                  {"RFCKERNRL", "C4", "Kernel release"},
                  {"RFCHOST2", "C32", "Host name (long)"},
                  {"RFCSI_RESV", "C12", "Reserved"},
                  {"RFCIPV6ADDR", "C45", "IP address (IPv6)"}},
                 "RFC system information");
  d.addStructure("RFCTEST",
                 {{"RFCFLOAT", "F", "Field of type FLTP"},
                  {"RFCCHAR1", "C1", "Field of type CHAR1"},
                  {"RFCINT2", "INT2", "Field of type INT2"},
                  {"RFCINT1", "INT1", "Field of type INT1"},
                  {"RFCCHAR4", "C4", "Field of type CHAR4"},
                  {"RFCINT4", "I", "Field of type INT4"},
                  {"RFCHEX3", "X3", "Field of type RAW3"},
                  {"RFCCHAR2", "C2", "Field of type CHAR2"},
                  {"RFCTIME", "T", "Field of type TIMS"},
                  {"RFCDATE", "D", "Field of type DATS"},
                  {"RFCDATA1", "C50", "Field of type CHAR50"},
                  {"RFCDATA2", "C50", "Field of type CHAR50"}},
                 "RFC test structure");
  d.addStructure("RFCATTRIBS",
                 {{"DEST", "C64", "Destination"},
                  {"HOST", "C100", "Own host"},
                  {"PARTNER_HOST", "C100", "Partner host"},
                  {"SYSNR", "C2", "Instance number"},
                  {"SYSID", "C8", "System ID"},
                  {"CLIENT", "MANDT"},
                  {"USER", "XUBNAME"},
                  {"LANGUAGE", "SPRAS"},
                  {"ISO_LANGUAGE", "LAISO"},
                  {"CODEPAGE", "C4", "Own code page"},
                  {"PARTNER_CODEPAGE", "C4", "Partner code page"},
                  {"RFC_ROLE", "C1", "C client, S server"},
                  {"TYPE", "C1", "2 R/2, 3 R/3, E external"},
                  {"REL", "C4", "Own release"},
                  {"PARTNER_REL", "C4", "Partner release"},
                  {"KERNEL_REL", "C4", "Kernel release"},
                  {"CPIC_CONVID", "C8", "Conversation ID"}},
                 "Attributes of an RFC connection");
  // Flight model.
  d.addStructure("BAPISFLKEY", {{"AIRLINEID", "S_CARR_ID"}, {"CONNECTID", "S_CONN_ID"}, {"FLIGHTDATE", "S_DATE"}},
                 "Flight key");
  d.addStructure("BAPISFLAUX", {{"BAPIMAXROW", "BAPIMAXROW"}}, "Auxiliary structure for flights");
  d.addStructure("BAPISFLDST",
                 {{"AIRPORTID", "S_FROMAIRP", "Airport"},
                  {"CITY", "S_FROM_CIT", "City"},
                  {"COUNTR", "LAND1"},
                  {"COUNTR_ISO", "C2", "Country ISO code"}},
                 "Flight destination");
  d.addStructure("BAPISFLDRA",
                 {{"SIGN", "C1", "Inclusion or exclusion (I, E)"},
                  {"OPTION", "C2", "Selection option (EQ, BT, ...)"},
                  {"LOW", "S_DATE"},
                  {"HIGH", "S_DATE"}},
                 "Range of flight dates");
  d.addStructure("BAPISFLDAT",
                 {{"AIRLINEID", "S_CARR_ID"},
                  {"AIRLINE", "S_CARRNAME"},
                  {"CONNECTID", "S_CONN_ID"},
                  {"FLIGHTDATE", "S_DATE"},
                  {"AIRPORTFR", "S_FROMAIRP"},
                  {"CITYFROM", "S_FROM_CIT"},
                  {"AIRPORTTO", "S_TOAIRP"},
                  {"CITYTO", "S_TO_CITY"},
                  {"DEPTIME", "S_DEP_TIME"},
                  {"ARRTIME", "S_ARR_TIME"},
                  {"ARRDATE", "S_DATE", "Arrival date"},
                  {"PRICE", "BAPICUREXT", "Airfare"},
                  {"CURR", "S_CURRCODE"},
                  {"CURR_ISO", "S_CURR_ISO"}},
                 "Flight data");
  d.addStructure("BAPIPAREX",
                 {{"STRUCTURE", "TE_STRUC"},
                  {"VALUEPART1", "VALUEPART"},
                  {"VALUEPART2", "VALUEPART"},
                  {"VALUEPART3", "VALUEPART"},
                  {"VALUEPART4", "VALUEPART"}},
                 "Ref. structure for BAPI parameter ExtensionIn/ExtensionOut");
  d.addStructure("BAPIRET2",
                 {{"TYPE", "BAPI_MTYPE"},
                  {"ID", "SYMSGID"},
                  {"NUMBER", "SYMSGNO"},
                  {"MESSAGE", "BAPI_MSG"},
                  {"LOG_NO", "BALOGNR"},
                  {"LOG_MSG_NO", "BALMNR"},
                  {"MESSAGE_V1", "SYMSGV"},
                  {"MESSAGE_V2", "SYMSGV"},
                  {"MESSAGE_V3", "SYMSGV"},
                  {"MESSAGE_V4", "SYMSGV"},
                  {"PARAMETER", "BAPI_PARAM"},
                  {"ROW", "INT4", "Lines in parameter"},
                  {"FIELD", "BAPI_FLD"},
                  {"SYSTEM", "BAPILOGSYS"}},
                 "Return Parameter");
  d.addTableType("BAPIRET2_T", "BAPIRET2", "Return parameter table");
  d.addStructure("BAPITA", {{"WAIT", "BAPIWAIT"}}, "BAPI transaction control");
  // Types of the simulator's own test modules.
  d.addStructure("ZVSIM_FLAT",
                 {{"CHAR", "C10", "Character field"},
                  {"NUMC", "N8", "Numeric text"},
                  {"DATE", "D", "Date"},
                  {"TIME", "T", "Time"},
                  {"RAW", "X4", "Byte field"},
                  {"PACKED", "P8.2", "Packed number"},
                  {"FLOAT", "F", "Floating point number"},
                  {"INT", "I", "Integer"},
                  {"INT1", "INT1", "One-byte integer"},
                  {"INT2", "INT2", "Two-byte integer"}},
                 "Flat structure with every flat type");
  d.addTableType("ZVSIM_FLAT_TT", "ZVSIM_FLAT", "Table of ZVSIM_FLAT");
  d.addStructure("ZVSIM_NESTED",
                 {{"ID", "N4", "Identifier"}, {"FLAT", "ZVSIM_FLAT", "Nested flat structure"}, {"NOTE", "C20", "Note"}},
                 "Flat structure with a nested structure");
  d.addStructure("ZVSIM_DEEP",
                 {{"ID", "N4", "Identifier"},
                  {"TEXT", "STRING", "Text of any length"},
                  {"DATA", "XSTRING", "Bytes of any length"},
                  {"FLAT", "ZVSIM_FLAT", "Nested flat structure"},
                  {"ROWS", "ZVSIM_FLAT_TT", "Nested table"}},
                 "Deep structure");
  d.addStructure(
      "ZVSIM_ROW",
      {{"ROW_NO", "I", "Row number"}, {"TEXT", "C40", "Text"}, {"AMOUNT", "P8.2", "Amount"}, {"CREATED", "D", "Date"}},
      "Generated row");
  d.addStructure("ZVSIM_NOTE", {{"NOTE_NO", "I", "Note number"}, {"TEXT", "C80", "Text"}, {"CREATED_BY", "XUBNAME"}},
                 "Note of the test BAPI");
  d.addTableType("STRINGTAB", "STRING", "Table of strings");
}

}  // namespace

void installDictionary(System& system) {
  Dictionary& d = system.dictionary();
  elements(d);
  structures(d);
}

}  // namespace vsim
