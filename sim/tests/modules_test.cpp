// The standard function modules and the data directory, called through the engine.
#include <gtest/gtest.h>

#include <map>

#include "engine/convert.h"
#include "engine/data_dir.h"
#include "engine/system.h"

namespace vsim {
namespace {

using Row = std::map<std::string, std::string>;

class Modules : public ::testing::Test {
 protected:
  static System& sys() {
    static System s;
    return s;
  }
  Session session{Logon{"001", "DEMO", "E"}};

  static void set(Call& c, const std::string& param, const std::string& text) {
    const int i = c.find(param);
    ASSERT_GE(i, 0) << param;
    c.supply(static_cast<size_t>(i),
             parseValue(*c.function().params[static_cast<size_t>(i)].type, text, TextForm::Plain));
  }
  static void rows(Call& c, const std::string& param, const std::vector<Row>& rs) {
    const int i = c.find(param);
    ASSERT_GE(i, 0) << param;
    const TypeDesc& row = *c.function().params[static_cast<size_t>(i)].type->row;
    Value v(Value::List{});
    for (const auto& r : rs) {
      Value rv = initialValue(row);
      for (const auto& [k, text] : r)
        rv[k] = parseValue(*row.components[static_cast<size_t>(row.find(k))].type, text, TextForm::Plain);
      v.items().push_back(rv);
    }
    c.supply(static_cast<size_t>(i), std::move(v));
  }
  static std::string text(const Call& c, const std::string& param) {
    const int i = c.find(param);
    return formatPlain(*c.function().params[static_cast<size_t>(i)].type, c.value(param));
  }
  static std::string field(const Call& c, const std::string& param, size_t row, const std::string& name) {
    const TypeDesc& t = *c.function().params[static_cast<size_t>(c.find(param))].type;
    const TypeDesc& rt = t.kind == Kind::Table ? *t.row : t;
    const Value& v = t.kind == Kind::Table ? c.value(param).items().at(row) : c.value(param);
    const int k = rt.find(name);
    return formatPlain(*rt.components[static_cast<size_t>(k)].type, v.items()[static_cast<size_t>(k)]);
  }
  static size_t count(const Call& c, const std::string& param) { return c.value(param).items().size(); }

  // Runs and expects the given exception (empty: none); returns the exception.
  std::optional<AbapException> run(Call& c, Session* s = nullptr) {
    try {
      sys().execute(c, s ? *s : session);
    } catch (const AbapException& e) {
      return e;
    }
    return std::nullopt;
  }
};

TEST_F(Modules, ReadTableWithDelimiterAndFields) {
  Call c = sys().prepare("RFC_READ_TABLE");
  set(c, "QUERY_TABLE", "T000");
  set(c, "DELIMITER", "|");
  rows(c, "FIELDS", {{{"FIELDNAME", "MANDT"}}, {{"FIELDNAME", "MTEXT"}}, {{"FIELDNAME", "CCCATEGORY"}}});
  ASSERT_FALSE(run(c));
  ASSERT_EQ(count(c, "DATA"), 4u);  // T000 is client-independent
  EXPECT_EQ(field(c, "DATA", 0, "WA"), "000|SAP AG Konzern           |S");
  ASSERT_EQ(count(c, "FIELDS"), 3u);
  EXPECT_EQ(field(c, "FIELDS", 1, "FIELDNAME"), "MTEXT");
  EXPECT_EQ(field(c, "FIELDS", 1, "OFFSET"), "000004");
  EXPECT_EQ(field(c, "FIELDS", 1, "LENGTH"), "000025");
  EXPECT_EQ(field(c, "FIELDS", 1, "TYPE"), "C");
  EXPECT_EQ(field(c, "FIELDS", 1, "FIELDTEXT"), "Client name");
  EXPECT_EQ(field(c, "FIELDS", 2, "OFFSET"), "000030");
}

TEST_F(Modules, ReadTableAllFieldsPagingAndClient) {
  Call c = sys().prepare("RFC_READ_TABLE");
  set(c, "QUERY_TABLE", "sflight");  // names in any case
  set(c, "ROWSKIPS", "10");
  set(c, "ROWCOUNT", "5");
  rows(c, "OPTIONS", {{{"TEXT", "CARRID = 'LH'"}}, {{"TEXT", "AND CONNID = '0400'"}}});
  ASSERT_FALSE(run(c));
  EXPECT_EQ(count(c, "DATA"), 5u);
  EXPECT_EQ(count(c, "FIELDS"), 14u);
  EXPECT_EQ(field(c, "FIELDS", 3, "TYPE"), "D");
  EXPECT_EQ(field(c, "FIELDS", 4, "LENGTH"), "000015");  // P(8) with 15 digits
  EXPECT_EQ(field(c, "FIELDS", 7, "TYPE"), "I");
  EXPECT_EQ(field(c, "DATA", 0, "WA").substr(0, 10), "001LH 0400");

  Call all = sys().prepare("RFC_READ_TABLE");
  set(all, "QUERY_TABLE", "SCARR");
  ASSERT_FALSE(run(all));
  EXPECT_EQ(count(all, "DATA"), 17u);
  Session other{Logon{"100", "DEMO", "E"}};
  Call none = sys().prepare("RFC_READ_TABLE");
  set(none, "QUERY_TABLE", "SCARR");
  ASSERT_FALSE(run(none, &other));
  EXPECT_EQ(count(none, "DATA"), 0u);

  Call noData = sys().prepare("RFC_READ_TABLE");
  set(noData, "QUERY_TABLE", "SCARR");
  set(noData, "NO_DATA", "X");
  ASSERT_FALSE(run(noData));
  EXPECT_EQ(count(noData, "DATA"), 0u);
  EXPECT_EQ(count(noData, "FIELDS"), 5u);
}

TEST_F(Modules, ReadTableExceptions) {
  struct C {
    const char* table;
    std::vector<Row> fields, options;
    const char* exception;
  };
  const C cases[] = {
      {"NO_SUCH_TABLE", {}, {}, "TABLE_NOT_AVAILABLE"},
      {"RFCTEST", {}, {}, "TABLE_WITHOUT_DATA"},
      {"SCARR", {{{"FIELDNAME", "NOFIELD"}}}, {}, "FIELD_NOT_VALID"},
      {"SCARR", {}, {{{"TEXT", "CARRID = 'LH"}}}, "OPTION_NOT_VALID"},
      {"SCARR", {}, {{{"TEXT", "NOFIELD = 'LH'"}}}, "OPTION_NOT_VALID"},
      {"USR02", {}, {}, "NOT_AUTHORIZED"},
  };
  for (const auto& k : cases) {
    Call c = sys().prepare("RFC_READ_TABLE");
    set(c, "QUERY_TABLE", k.table);
    if (!k.fields.empty()) rows(c, "FIELDS", k.fields);
    if (!k.options.empty()) rows(c, "OPTIONS", k.options);
    auto e = run(c);
    ASSERT_TRUE(e) << k.table;
    EXPECT_EQ(e->name(), k.exception) << k.table;
  }
}

TEST_F(Modules, ReadTableBufferExceededAndDataFromJson) {
  System s;
  loadDataText(s, R"({"tables": [{"name": "ZWIDE", "fields": [{"name": "MANDT", "type": "MANDT"},
      {"name": "A", "type": "C300"}, {"name": "B", "type": "C300"}], "keyFields": 1,
      "rows": [{"MANDT": "001", "A": "x", "B": "y"}]}]})",
               "inline");
  Call c = s.prepare("RFC_READ_TABLE");
  set(c, "QUERY_TABLE", "ZWIDE");
  EXPECT_THROW(s.execute(c, session), AbapException);
  Call two = s.prepare("RFC_READ_TABLE");
  set(two, "QUERY_TABLE", "ZWIDE");
  rows(two, "FIELDS", {{{"FIELDNAME", "A"}}});
  s.execute(two, session);
  EXPECT_EQ(field(two, "DATA", 0, "WA"), "x");
  Call noData = s.prepare("RFC_READ_TABLE");
  set(noData, "QUERY_TABLE", "ZWIDE");
  set(noData, "NO_DATA", "X");
  s.execute(noData, session);  // the row length is only checked when data is wanted
  EXPECT_EQ(count(noData, "FIELDS"), 3u);
}

TEST_F(Modules, ReadTableOfManyRows) {
  System big(SystemOptions{100000, 1000});
  EXPECT_EQ(big.tables().find("SFLIGHT")->rows.size(), 100000u);
  Call c = big.prepare("RFC_READ_TABLE");
  set(c, "QUERY_TABLE", "SFLIGHT");
  rows(c, "FIELDS", {{{"FIELDNAME", "CARRID"}}, {{"FIELDNAME", "FLDATE"}}});
  big.execute(c, session);
  EXPECT_EQ(count(c, "DATA"), 100000u);
}

TEST_F(Modules, FunctionInterfaceRows) {
  Call c = sys().prepare("RFC_GET_FUNCTION_INTERFACE");
  set(c, "FUNCNAME", "STFC_CONNECTION");
  ASSERT_FALSE(run(c));
  ASSERT_EQ(count(c, "PARAMS"), 3u);
  EXPECT_EQ(field(c, "PARAMS", 0, "PARAMCLASS"), "I");
  EXPECT_EQ(field(c, "PARAMS", 0, "PARAMETER"), "REQUTEXT");
  EXPECT_EQ(field(c, "PARAMS", 0, "TABNAME"), "SYST");
  EXPECT_EQ(field(c, "PARAMS", 0, "FIELDNAME"), "LISEL");
  EXPECT_EQ(field(c, "PARAMS", 0, "EXID"), "C");
  EXPECT_EQ(field(c, "PARAMS", 0, "INTLENGTH"), "510");
  EXPECT_EQ(field(c, "PARAMS", 0, "OPTIONAL"), "");
  EXPECT_EQ(field(c, "PARAMS", 1, "PARAMCLASS"), "E");
  EXPECT_EQ(text(c, "REMOTE_CALL"), "R");

  Call one = sys().prepare("RFC_GET_FUNCTION_INTERFACE");
  set(one, "FUNCNAME", "RFC_READ_TABLE");
  set(one, "NONE_UNICODE_LENGTH", "X");
  ASSERT_FALSE(run(one));
  EXPECT_EQ(count(one, "PARAMS"), 8u + 6u);
  EXPECT_EQ(field(one, "PARAMS", 0, "INTLENGTH"), "30");
  EXPECT_EQ(field(one, "PARAMS", 1, "DEFAULT"), "SPACE");
  EXPECT_EQ(field(one, "PARAMS", 1, "OPTIONAL"), "X");
  EXPECT_EQ(field(one, "PARAMS", 3, "EXID"), "I");
  EXPECT_EQ(field(one, "PARAMS", 3, "TABNAME"), "SOID");
  EXPECT_EQ(field(one, "PARAMS", 5, "PARAMCLASS"), "T");
  EXPECT_EQ(field(one, "PARAMS", 5, "EXID"), "u");
  EXPECT_EQ(field(one, "PARAMS", 5, "TABNAME"), "RFC_DB_OPT");
  EXPECT_EQ(field(one, "PARAMS", 8, "PARAMCLASS"), "X");
  EXPECT_EQ(field(one, "PARAMS", 8, "PARAMETER"), "TABLE_NOT_AVAILABLE");

  Call types = sys().prepare("RFC_GET_FUNCTION_INTERFACE");
  set(types, "FUNCNAME", "Z_VSIM_TYPES");
  ASSERT_FALSE(run(types));
  std::map<std::string, std::string> exid, length;
  for (size_t i = 0; i < count(types, "PARAMS"); ++i) {
    exid[field(types, "PARAMS", i, "PARAMETER")] = field(types, "PARAMS", i, "EXID");
    length[field(types, "PARAMS", i, "PARAMETER")] = field(types, "PARAMS", i, "INTLENGTH");
  }
  EXPECT_EQ(exid["IV_PACKED"], "P");
  EXPECT_EQ(length["IV_PACKED"], "8");
  EXPECT_EQ(exid["IV_INT1"], "b");
  EXPECT_EQ(exid["IV_INT2"], "s");
  EXPECT_EQ(exid["IV_STRING"], "g");
  EXPECT_EQ(exid["IV_XSTRING"], "y");
  EXPECT_EQ(exid["IS_FLAT"], "u");
  EXPECT_EQ(exid["IT_FLAT"], "h");
  EXPECT_EQ(exid["IS_DEEP"], "v");
  EXPECT_EQ(length["IV_DATE"], "16");

  Call missing = sys().prepare("RFC_GET_FUNCTION_INTERFACE");
  set(missing, "FUNCNAME", "Z_DOES_NOT_EXIST");
  auto e = run(missing);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->name(), "FU_NOT_FOUND");
  ASSERT_TRUE(e->message());
  EXPECT_EQ(e->message()->id, "FL");
  EXPECT_EQ(e->message()->number, "046");
  EXPECT_EQ(e->message()->text, "Function module \"Z_DOES_NOT_EXIST\" not found");
}

TEST_F(Modules, UnicodeStructureFlatNestedDeep) {
  Call c = sys().prepare("RFC_GET_UNICODE_STRUCTURE");
  set(c, "TABNAME", "RFCTEST");
  ASSERT_FALSE(run(c));
  ASSERT_EQ(count(c, "FIELDS"), 12u);
  EXPECT_EQ(text(c, "B1_TABLENGTH"), "144");
  EXPECT_EQ(text(c, "B2_TABLENGTH"), "264");
  EXPECT_EQ(field(c, "FIELDS", 4, "FIELDNAME"), "RFCCHAR4");
  EXPECT_EQ(field(c, "FIELDS", 4, "OFFSET_B1"), "13");
  EXPECT_EQ(field(c, "FIELDS", 4, "LENGTH_B1"), "4");
  EXPECT_EQ(field(c, "FIELDS", 4, "OFFSET_B2"), "14");
  EXPECT_EQ(field(c, "FIELDS", 4, "LENGTH_B2"), "8");
  EXPECT_EQ(field(c, "FIELDS", 0, "DECIMALS"), "16");

  Call skip = sys().prepare("RFC_GET_UNICODE_STRUCTURE");
  set(skip, "TABNAME", "RFC_FUNINT");
  set(skip, "SKIP_UTF16_INFO", "X");
  set(skip, "SKIP_UCS_4_INFO", "X");
  ASSERT_FALSE(run(skip));
  EXPECT_EQ(count(skip, "FIELDS"), 12u);
  EXPECT_EQ(field(skip, "FIELDS", 1, "OFFSET_B2"), "0");
  EXPECT_EQ(text(skip, "B2_TABLENGTH"), "0");

  Call nested = sys().prepare("RFC_GET_UNICODE_STRUCTURE");
  set(nested, "TABNAME", "ZVSIM_NESTED");
  ASSERT_FALSE(run(nested));
  ASSERT_EQ(count(nested, "FIELDS"), 1u + 1u + 10u + 1u);
  EXPECT_EQ(field(nested, "FIELDS", 1, "FIELDNAME"), "FLAT");
  EXPECT_EQ(field(nested, "FIELDS", 1, "EXID"), "u");
  EXPECT_EQ(field(nested, "FIELDS", 2, "FIELDNAME"), "FLAT-CHAR");
  EXPECT_EQ(field(nested, "FIELDS", 2, "OFFSET_B1"), "8");
  EXPECT_EQ(field(nested, "FIELDS", 12, "FIELDNAME"), "NOTE");

  Call deep = sys().prepare("RFC_GET_UNICODE_STRUCTURE");
  set(deep, "TABNAME", "ZVSIM_DEEP");
  auto e = run(deep);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->name(), "PROGRAM_ERROR");
  Call half = sys().prepare("RFC_GET_UNICODE_STRUCTURE");
  set(half, "TABNAME", "ZVSIM_DEEP");
  set(half, "ALLOW_HALF_DEEP", "X");
  ASSERT_FALSE(run(half));
  std::string letters;
  for (size_t i = 0; i < count(half, "FIELDS"); ++i) letters += field(half, "FIELDS", i, "EXID");
  EXPECT_EQ(letters,
            "Ngyu"
            "CNDTXPFIbs"
            "h");

  Call unknown = sys().prepare("RFC_GET_UNICODE_STRUCTURE");
  set(unknown, "TABNAME", "NO_SUCH_STRUCTURE");
  auto u = run(unknown);
  ASSERT_TRUE(u);
  EXPECT_EQ(u->name(), "NOT_FOUND");
}

TEST_F(Modules, NametabOfTableTypesAndTables) {
  Call c = sys().prepare("RFC_GET_NAMETAB");
  set(c, "TABNAME", "BAPIRET2_T");
  ASSERT_FALSE(run(c));
  EXPECT_EQ(field(c, "HEADER", 0, "REFNAME"), "BAPIRET2");
  EXPECT_EQ(field(c, "HEADER", 0, "TABTYPE"), "L");
  EXPECT_EQ(count(c, "NAMETAB"), 14u);

  Call t = sys().prepare("RFC_GET_NAMETAB");
  set(t, "TABNAME", "SFLIGHT");
  ASSERT_FALSE(run(t));
  EXPECT_EQ(field(t, "HEADER", 0, "TABTYPE"), "T");
  EXPECT_EQ(field(t, "HEADER", 0, "REFNAME"), "");
  EXPECT_EQ(field(t, "HEADER", 0, "KEYCOUNT"), "4");
  EXPECT_EQ(field(t, "NAMETAB", 3, "KEYFLAG"), "X");
  EXPECT_EQ(field(t, "NAMETAB", 4, "KEYFLAG"), "");
  EXPECT_EQ(field(t, "NAMETAB", 1, "DTELNAME"), "S_CARR_ID");

  for (const char* bad : {"NO_SUCH_TYPE", "MANDT"}) {
    Call b = sys().prepare("RFC_GET_NAMETAB");
    set(b, "TABNAME", bad);
    auto e = run(b);
    ASSERT_TRUE(e) << bad;
    EXPECT_EQ(e->name(), "TABLE_NOT_ACTIV");
  }
}

TEST_F(Modules, BasisModules) {
  Call ping = sys().prepare("RFC_PING");
  EXPECT_FALSE(run(ping));
  Call info = sys().prepare("RFC_SYSTEM_INFO");
  ASSERT_FALSE(run(info));
  EXPECT_EQ(field(info, "RFCSI_EXPORT", 0, "RFCPROTO"), "011");
  EXPECT_EQ(field(info, "RFCSI_EXPORT", 0, "RFCSYSID"), "VSM");
  EXPECT_EQ(field(info, "RFCSI_EXPORT", 0, "RFCMACH"), "  390");
  Call conn = sys().prepare("STFC_CONNECTION");
  set(conn, "REQUTEXT", "hello");
  ASSERT_FALSE(run(conn));
  EXPECT_EQ(text(conn, "ECHOTEXT"), "hello");
  EXPECT_NE(text(conn, "RESPTEXT").find("Sysid: VSM"), std::string::npos);
  EXPECT_NE(text(conn, "RESPTEXT").find("Logon_Data: 001/DEMO/E"), std::string::npos);
  Call st = sys().prepare("STFC_STRUCTURE");
  Value in = initialValue(*st.function().params[0].type);
  in["RFCINT4"] = Value(std::int64_t{7});
  in["RFCCHAR4"] = Value("ABCD");
  st.supply(0, in);
  rows(st, "RFCTABLE", {{{"RFCINT4", "1"}}});
  ASSERT_FALSE(run(st));
  EXPECT_EQ(field(st, "ECHOSTRUCT", 0, "RFCINT4"), "7");
  ASSERT_EQ(count(st, "RFCTABLE"), 2u);
  EXPECT_EQ(field(st, "RFCTABLE", 1, "RFCCHAR4"), "ABCD");
  Call attr = sys().prepare("RFC_GET_ATTRIBUTES");
  ASSERT_FALSE(run(attr));
  EXPECT_EQ(field(attr, "ATTRIBUTES", 0, "USER"), "DEMO");
  EXPECT_EQ(field(attr, "ATTRIBUTES", 0, "ISO_LANGUAGE"), "EN");
}

TEST_F(Modules, PasswordServices) {
  System s;
  Session demo{Logon{"001", "DEMO", "E"}}, expired{Logon{"001", "EXPIRED", "E"}};
  Call ok = s.prepare("SUSR_LOGIN_CHECK_RFC");
  EXPECT_NO_THROW(s.execute(ok, demo));
  Call ex = s.prepare("SUSR_LOGIN_CHECK_RFC");
  try {
    s.execute(ex, expired);
    FAIL() << "no exception";
  } catch (const AbapException& e) {
    EXPECT_EQ(e.name(), "PASSWORD_EXPIRED");
    EXPECT_FALSE(e.message());
  }
  Call wrong = s.prepare("SUSR_LOGIN_CHECK_RFC");
  set(wrong, "PASSWORD", "nope");
  EXPECT_THROW(s.execute(wrong, demo), AbapException);

  auto change = [&](const std::string& old, const std::string& fresh) -> std::string {
    Call c = s.prepare("SUSR_USER_CHANGE_PASSWORD_RFC");
    set(c, "PASSWORD", old);
    set(c, "NEW_PASSWORD", fresh);
    try {
      s.execute(c, expired);
    } catch (const AbapException& e) {
      return e.name();
    }
    return field(c, "RETURN", 0, "TYPE");
  };
  EXPECT_EQ(change("bad", "Another1"), "CHANGE_NOT_ALLOWED");
  EXPECT_EQ(change("Welcome1", "short"), "PASSWORD_NOT_ALLOWED");
  EXPECT_EQ(change("Welcome1", "Welcome1"), "PASSWORD_NOT_ALLOWED");
  EXPECT_EQ(change("Welcome1", "Another1"), "S");
  EXPECT_EQ(s.users().check("001", "EXPIRED", "Another1"), LogonResult::Ok);
  Call after = s.prepare("SUSR_LOGIN_CHECK_RFC");
  EXPECT_NO_THROW(s.execute(after, expired));

  Call bapi = s.prepare("SUSR_USER_CHANGE_PASSWORD_RFC");
  set(bapi, "PASSWORD", "bad");
  set(bapi, "NEW_PASSWORD", "Another2");
  set(bapi, "USE_BAPI_RETURN", "X");
  EXPECT_NO_THROW(s.execute(bapi, demo));
  EXPECT_EQ(field(bapi, "RETURN", 0, "TYPE"), "E");
  EXPECT_EQ(field(bapi, "RETURN", 0, "NUMBER"), "152");

  Call uni = s.prepare("SLDAG_CHECK_FOR_UNICODE");
  s.execute(uni, demo);
  EXPECT_EQ(text(uni, "UNICODE"), "1");
}

TEST_F(Modules, AuthorizationAndUnknownModules) {
  Session restricted{Logon{"001", "RESTRICTED", "E"}};
  Call ping = sys().prepare("RFC_PING");
  EXPECT_NO_THROW(sys().execute(ping, restricted));
  Call read = sys().prepare("RFC_READ_TABLE");
  try {
    sys().execute(read, restricted);
    FAIL();
  } catch (const SystemFailure& e) {
    EXPECT_EQ(e.key(), "RFC_AUTHORIZATION_FAILURE");
  }
  try {
    sys().prepare("Z_NOT_THERE");
    FAIL();
  } catch (const SystemFailure& e) {
    EXPECT_EQ(e.key(), "FU_NOT_FOUND");
    EXPECT_NE(e.message().find("not found"), std::string::npos);
  }
}

TEST_F(Modules, FlightList) {
  Call c = sys().prepare("BAPI_FLIGHT_GETLIST");
  set(c, "AIRLINE", "LH");
  rows(c, "DATE_RANGE", {{{"SIGN", "I"}, {"OPTION", "BT"}, {"LOW", "20250101"}, {"HIGH", "20250331"}}});
  ASSERT_FALSE(run(c));
  ASSERT_GT(count(c, "FLIGHT_LIST"), 10u);
  for (size_t i = 0; i < count(c, "FLIGHT_LIST"); ++i) {
    EXPECT_EQ(field(c, "FLIGHT_LIST", i, "AIRLINEID"), "LH");
    EXPECT_EQ(field(c, "FLIGHT_LIST", i, "AIRLINE"), "Lufthansa");
    const std::string d = field(c, "FLIGHT_LIST", i, "FLIGHTDATE");
    EXPECT_TRUE(d >= "20250101" && d <= "20250331") << d;
  }
  EXPECT_EQ(field(c, "FLIGHT_LIST", 0, "CURR_ISO"), "EUR");
  EXPECT_EQ(count(c, "RETURN"), 0u);

  Call from = sys().prepare("BAPI_FLIGHT_GETLIST");
  Value dest = initialValue(*from.function().params[1].type);
  dest["CITY"] = Value("frankfurt");
  from.supply(1, dest);
  set(from, "MAX_ROWS", "7");
  ASSERT_FALSE(run(from));
  ASSERT_EQ(count(from, "FLIGHT_LIST"), 7u);
  EXPECT_EQ(field(from, "FLIGHT_LIST", 0, "CITYFROM"), "FRANKFURT");

  Call none = sys().prepare("BAPI_FLIGHT_GETLIST");
  set(none, "AIRLINE", "XX");
  ASSERT_FALSE(run(none));
  EXPECT_EQ(count(none, "FLIGHT_LIST"), 0u);
  ASSERT_EQ(count(none, "RETURN"), 1u);
  EXPECT_EQ(field(none, "RETURN", 0, "NUMBER"), "055");

  Call bad = sys().prepare("BAPI_FLIGHT_GETLIST");
  rows(bad, "DATE_RANGE", {{{"SIGN", "I"}, {"OPTION", "CP"}, {"LOW", "20250101"}}});
  ASSERT_FALSE(run(bad));
  EXPECT_EQ(field(bad, "RETURN", 0, "TYPE"), "E");
}

TEST_F(Modules, EveryTypeInEveryDirection) {
  Call c = sys().prepare("Z_VSIM_TYPES");
  const std::pair<const char*, const char*> in[] = {{"CHAR", "abc"},    {"NUMC", "00000099"},  {"DATE", "20241231"},
                                                    {"TIME", "235959"}, {"RAW", "01020304"},   {"PACKED", "-12.34"},
                                                    {"FLOAT", "1.5"},   {"INT", "2147483647"}, {"INT1", "255"},
                                                    {"INT2", "-5"},     {"STRING", "text"},    {"XSTRING", "FF00"}};
  const char* changedTo[] = {"ABC", "00000100",    "20250101", "000000", "FEFDFCFB", "-11.34",
                             "3E0", "-2147483648", "0",        "-4",     "TEXT",     "00FF"};
  for (const auto& [suffix, value] : in) {
    set(c, std::string("IV_") + suffix, value);
    set(c, std::string("CV_") + suffix, value);
  }
  ASSERT_FALSE(run(c));
  size_t k = 0;
  for (const auto& [suffix, value] : in) {
    const std::string original =
        formatPlain(*c.function().params[static_cast<size_t>(c.find(std::string("IV_") + suffix))].type,
                    c.value(std::string("IV_") + suffix));
    EXPECT_EQ(text(c, std::string("EV_") + suffix), original) << suffix;
    EXPECT_EQ(text(c, std::string("CV_") + suffix), changedTo[k++]) << suffix;
  }
  EXPECT_EQ(count(c, "TT_FLAT"), 1u);  // IS_FLAT appended
}

TEST_F(Modules, RaiseOnRequest) {
  auto raise = [&](const Row& params) -> std::string {
    Call c = sys().prepare("Z_VSIM_RAISE");
    for (const auto& [k, v] : params) set(c, k, v);
    try {
      sys().execute(c, session);
    } catch (const AbapException& e) {
      return "exception " + e.name() +
             (e.message() ? " " + e.message()->id + e.message()->number + " " + e.message()->text : "");
    } catch (const SystemFailure& e) {
      return "failure " + e.key() + " " + e.message();
    }
    return "none";
  };
  EXPECT_EQ(raise({{"EXCEPTION", "NOT_FOUND"}}), "exception NOT_FOUND");
  EXPECT_EQ(raise({{"EXCEPTION", "FAILED"},
                   {"MESSAGE_ID", "ZX"},
                   {"MESSAGE_NUMBER", "7"},
                   {"MESSAGE_TEXT", "Order & of &2"},
                   {"MESSAGE_V1", "42"},
                   {"MESSAGE_V2", "DEMO"}}),
            "exception FAILED ZX007 Order 42 of DEMO");
  EXPECT_EQ(raise({{"EXCEPTION", "UNDECLARED"}}), "failure RAISE_EXCEPTION Exception condition \"UNDECLARED\" raised.");
  EXPECT_EQ(raise({{"MESSAGE_TEXT", "Plain error"}}), "failure ERROR_MESSAGE_STATE Plain error");
  EXPECT_EQ(raise({{"MESSAGE_TEXT", "Abort"}, {"MESSAGE_TYPE", "X"}}), "failure MESSAGE_TYPE_X Abort");
  EXPECT_EQ(raise({{"MESSAGE_TEXT", "Just info"}, {"MESSAGE_TYPE", "I"}}), "none");
  EXPECT_EQ(raise({{"RUNTIME_ERROR", "COMPUTE_INT_ZERODIVIDE"}}),
            "failure COMPUTE_INT_ZERODIVIDE Runtime error COMPUTE_INT_ZERODIVIDE occurred");
}

TEST_F(Modules, RowsWaitCounter) {
  Call rowsCall = sys().prepare("Z_VSIM_ROWS");
  set(rowsCall, "ROW_COUNT", "3");
  ASSERT_FALSE(run(rowsCall));
  EXPECT_EQ(count(rowsCall, "ROWS"), 3u);
  EXPECT_EQ(field(rowsCall, "ROWS", 2, "TEXT"), "Row 3");
  EXPECT_EQ(field(rowsCall, "ROWS", 2, "AMOUNT"), "3.75");
  Call negative = sys().prepare("Z_VSIM_ROWS");
  set(negative, "ROW_COUNT", "-1");
  auto e = run(negative);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->name(), "INVALID_COUNT");

  Call wait = sys().prepare("Z_VSIM_WAIT");
  set(wait, "MILLISECONDS", "1");
  ASSERT_FALSE(run(wait));
  System stopping;
  stopping.shutdown();
  Call cut = stopping.prepare("Z_VSIM_WAIT");
  set(cut, "MILLISECONDS", "100000");
  EXPECT_THROW(stopping.execute(cut, session), SystemFailure);

  for (int i = 1; i <= 3; ++i) {
    Call counter = sys().prepare("Z_VSIM_COUNTER");
    ASSERT_FALSE(run(counter));
    EXPECT_EQ(text(counter, "VALUE"), std::to_string(i));
  }
  Session fresh{Logon{"001", "DEMO", "E"}};
  Call counter = sys().prepare("Z_VSIM_COUNTER");
  set(counter, "STEP", "5");
  ASSERT_FALSE(run(counter, &fresh));
  EXPECT_EQ(text(counter, "VALUE"), "5");
}

TEST_F(Modules, ABapisChangeWaitsForTheCommitOfItsSession) {
  auto create = [&](const std::string& text, Session& in) {
    Call c = sys().prepare("Z_VSIM_NOTE_CREATE");
    set(c, "KEY", "luw");
    set(c, "TEXT", text);
    EXPECT_FALSE(run(c, &in));
    return c;
  };
  auto saved = [&] {
    Call c = sys().prepare("Z_VSIM_NOTE_GETLIST");
    set(c, "KEY", "luw");
    EXPECT_FALSE(run(c));
    return count(c, "NOTES");
  };
  auto call = [&](const std::string& function, Session& in) {
    Call c = sys().prepare(function);
    EXPECT_FALSE(run(c, &in));
    return c;
  };
  Session bapi{Logon{"001", "DEMO", "E"}};
  Call first = create("first", bapi);
  EXPECT_EQ(field(first, "RETURN", 0, "TYPE"), "S");
  EXPECT_EQ(text(first, "NOTE_NO"), "1");
  EXPECT_EQ(saved(), 0u);
  // Another session's commit does not save it.
  Session other{Logon{"001", "DEMO", "E"}};
  call("BAPI_TRANSACTION_COMMIT", other);
  EXPECT_EQ(saved(), 0u);
  Call commit = call("BAPI_TRANSACTION_COMMIT", bapi);
  EXPECT_EQ(field(commit, "RETURN", 0, "TYPE"), "");
  EXPECT_EQ(saved(), 1u);
  // Rolled back, and left behind by a session that ends: never saved.
  create("second", bapi);
  call("BAPI_TRANSACTION_ROLLBACK", bapi);
  call("BAPI_TRANSACTION_COMMIT", bapi);
  {
    Session ending{Logon{"001", "DEMO", "E"}};
    create("third", ending);
  }
  EXPECT_EQ(saved(), 1u);
  // Without a text: an error in RETURN, nothing to save.
  Call empty = create("", bapi);
  EXPECT_EQ(field(empty, "RETURN", 0, "TYPE"), "E");
  call("BAPI_TRANSACTION_COMMIT", bapi);
  EXPECT_EQ(saved(), 1u);
}

TEST_F(Modules, Tickets) {
  const std::string t = sys().issueTicket(Logon{"001", "DEMO", "E"});
  EXPECT_EQ(t.substr(0, 9), "AjQxMDMBA");
  auto l = sys().checkTicket(t);
  ASSERT_TRUE(l);
  EXPECT_EQ(l->user, "DEMO");
  std::string tampered = base64Decode(t);
  tampered[10] = tampered[10] == 'X' ? 'Y' : 'X';
  EXPECT_FALSE(sys().checkTicket(base64Encode(tampered)));
  EXPECT_FALSE(sys().checkTicket(sys().issueTicket(Logon{"001", "DEMO", "E"}, -10)));
  EXPECT_FALSE(sys().checkTicket("not a ticket"));
  EXPECT_FALSE(sys().checkTicket(sys().issueTicket(Logon{"001", "LOCKED", "E"})));
}

TEST_F(Modules, DataDirectoryFunctions) {
  System s;
  auto sum = loadDataText(s, R"({
    // comments are allowed
    "elements": [{"name": "ZCOLOR", "type": "C10", "text": "Colour"}],
    "structures": [{"name": "ZCAR", "fields": [{"name": "ID", "type": "N6"}, {"name": "COLOR", "type": "ZCOLOR"}]}],
    "tableTypes": [{"name": "ZCAR_TT", "rowType": "ZCAR"}],
    "tables": [{"name": "ZCARS", "fields": [{"name": "MANDT", "type": "MANDT"}, {"name": "ID", "type": "N6"},
                {"name": "COLOR", "type": "ZCOLOR"}], "keyFields": 2,
                "rows": [["001", 2, "blue"], {"MANDT": "001", "ID": "1", "COLOR": "red"}]},
               {"name": "SCARR", "rows": [{"MANDT": "001", "CARRID": "ZZ", "CARRNAME": "Sim Air"}]}],
    "users": [{"client": "001", "name": "tester", "password": "secret", "allowedFunctions": ["Z_CAR_GET"]}],
    "functions": [
      {"name": "Z_CAR_GET", "text": "Read a car",
       "importing": [{"name": "ID", "type": "ZCAR-ID"}],
       "exporting": [{"name": "CAR", "type": "ZCAR"}, {"name": "ECHO_ID", "type": "N6", "from": "ID"}],
       "exceptions": [{"name": "NOT_FOUND", "text": "No such car"}],
       "behaviour": {"cases": [
          {"when": {"ID": "1"}, "result": {"CAR": {"ID": "1", "COLOR": "red"}}},
          {"when": {"ID": 9}, "raise": "NOT_FOUND", "message": {"id": "ZCAR", "number": "001", "text": "Car & not found", "v1": "9"}},
          {"when": {"ID": 8}, "error": {"key": "DBSQL_SQL_ERROR", "message": "Database error"}}],
          "raise": "NOT_FOUND"}},
      {"name": "/VSIM/ECHO", "importing": [{"name": "TEXT", "type": "STRING"}],
       "exporting": [{"name": "RESULT", "type": "STRING", "from": "TEXT"}]}]})",
                          "cars.json");
  EXPECT_EQ(sum.functions, 2);
  EXPECT_EQ(sum.rows, 3);
  EXPECT_TRUE(s.users().mayCall("001", "TESTER", "Z_CAR_GET"));
  EXPECT_FALSE(s.users().mayCall("001", "TESTER", "RFC_PING"));
  const DbTable& cars = *s.tables().find("ZCARS");
  EXPECT_EQ(formatPlain(*cars.type->components[1].type, cars.rows[0].items()[1]), "000001");  // sorted by key

  auto get = [&](const std::string& id) -> std::string {
    Call c = s.prepare("Z_CAR_GET");
    set(c, "ID", id);
    try {
      s.execute(c, session);
    } catch (const AbapException& e) {
      return "exception " + e.name() + (e.message() ? " " + e.message()->text : "");
    } catch (const SystemFailure& e) {
      return "failure " + e.key();
    }
    return field(c, "CAR", 0, "COLOR") + " " + text(c, "ECHO_ID");
  };
  EXPECT_EQ(get("1"), "red 000001");
  EXPECT_EQ(get("9"), "exception NOT_FOUND Car 9 not found");
  EXPECT_EQ(get("8"), "failure DBSQL_SQL_ERROR");
  EXPECT_EQ(get("5"), "exception NOT_FOUND");

  Call echo = s.prepare("/VSIM/ECHO");
  set(echo, "TEXT", "hello");
  s.execute(echo, session);
  EXPECT_EQ(text(echo, "RESULT"), "hello");
}

TEST_F(Modules, DataDirectoryErrorsNameThePlace) {
  struct C {
    const char* json;
    const char* expected;
  };
  const C cases[] = {
      {"{", "f.json: "},
      {R"({"nonsense": []})", "unknown section \"nonsense\""},
      {R"({"elements": [{"name": "ZX", "type": "Q7"}]})", "f.json: elements[0]: unknown type Q7"},
      {R"({"elements": [{"name": "lower", "type": "C1"}]})", "no valid name"},
      {R"({"tables": [{"name": "ZT", "fields": [{"name": "A", "type": "C1"}], "rows": [{"B": "x"}]}]})",
       "tables[0].rows[0]: structure ZT has no component B"},
      {R"({"tables": [{"name": "ZT", "fields": [{"name": "A", "type": "N2"}], "rows": [{"A": "123"}]}]})", "overflow"},
      {R"({"functions": [{"name": "Z_F", "behaviour": {"raise": "NOPE"}}]})", "does not declare exception NOPE"},
      {R"({"functions": [{"name": "RFC_PING"}]})", "exists already"},
      {R"({"functions": [{"name": "Z_F", "exporting": [{"name": "E", "type": "C1", "from": "X"}]}]})",
       "names no parameter: X"},
      {R"({"users": [{"client": "999", "name": "U", "password": "p"}]})", "client 999 does not exist"},
  };
  for (const auto& c : cases) {
    System s;
    try {
      loadDataText(s, c.json, "f.json");
      ADD_FAILURE() << "accepted: " << c.json;
    } catch (const DataDirError& e) {
      EXPECT_NE(std::string(e.what()).find(c.expected), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace vsim
