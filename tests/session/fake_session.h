// A session on a fake back end: the frame of ISessionImpl over canned data,
// without a network. Imports define the interfaces of a few modules; calls
// answer from in-memory tables and switches that a test sets.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/connection_point.h"
#include "runtime/exceptions.h"
#include "runtime/report_error.h"
#include "session/rfc_error.h"
#include "session/session_impl.h"
#include "veltrane_events.h"
#include "veltrane_tlb.h"

namespace session_test {

inline std::u16string Str(BSTR s) { return s ? std::u16string(s, SysStringLen(s)) : std::u16string(); }
inline std::u16string Str(const CComBSTR& s) { return Str(s.m_str); }

inline std::u16string RightTrim(std::u16string s) {
  while (!s.empty() && s.back() == u' ') s.pop_back();
  return s;
}

// ---- building and reading calls through the public interfaces

inline CComPtr<IRfcType> StructType(const char16_t* name,
                                    std::initializer_list<std::tuple<const char16_t*, ABAPTYPE, SHORT>> fields) {
  CComPtr<IRfcType> type;
  EXPECT_EQ(CreateRfcType(&type), S_OK);
  EXPECT_EQ(type->DefineStruct(CComBSTR(name)), S_OK);
  for (const auto& [fieldName, abapType, length] : fields)
    EXPECT_EQ(type->AddScalarStructField(CComBSTR(fieldName), abapType, length, 0, -1, -1, -1, -1), S_OK);
  return type;
}

inline CComPtr<IRfcParameters> Params(IFunctionCall* call, int which) {
  CComPtr<IRfcParameters> p;
  switch (which) {
    case 0: call->get_Importing(&p); break;
    case 1: call->get_Exporting(&p); break;
    case 2: call->get_Changing(&p); break;
    default: call->get_Tables(&p); break;
  }
  return p;
}
inline CComPtr<IRfcParameters> Importing(IFunctionCall* c) { return Params(c, 0); }
inline CComPtr<IRfcParameters> Exporting(IFunctionCall* c) { return Params(c, 1); }
inline CComPtr<IRfcParameters> Tables(IFunctionCall* c) { return Params(c, 3); }

inline CComPtr<IRfcParameter> Param(IRfcParameters* params, const char16_t* name) {
  CComPtr<IRfcParameter> p;
  if (params) params->get_Item(CComVariant(name), &p);
  return p;
}

inline CComVariant ParamValue(IRfcParameters* params, const char16_t* name) {
  CComVariant v;
  if (CComPtr<IRfcParameter> p = Param(params, name)) p->get_value(&v);
  return v;
}

inline CComPtr<IRfcRows> TableRowsOf(IFunctionCall* call, const char16_t* name) {
  CComPtr<IRfcRows> rows;
  if (CComPtr<IRfcParameter> p = Param(Tables(call), name)) p->get_Rows(&rows);
  return rows;
}

inline CComVariant FieldOf(IRfcFields* row, const char16_t* name) {
  CComPtr<IRfcField> f;
  CComVariant v;
  if (row && SUCCEEDED(row->get_Item(CComVariant(name), &f)) && f) f->get_value(&v);
  return v;
}

inline void PutField(IRfcFields* row, const char16_t* name, const CComVariant& value) {
  CComPtr<IRfcField> f;
  ASSERT_EQ(row->get_Item(CComVariant(name), &f), S_OK);
  ASSERT_EQ(f->put_value(value), S_OK);
}

inline std::u16string TextOf(const CComVariant& v) {
  if (V_VT(&v) == VT_BSTR) return Str(V_BSTR(&v));
  CComVariant copy;
  if (FAILED(VariantChangeType(&copy, &v, 0, VT_BSTR))) return u"<not text>";
  return Str(V_BSTR(&copy));
}

inline std::vector<std::u16string> ColumnTexts(IRfcRows* rows, const char16_t* name) {
  std::vector<std::u16string> out;
  LONG n = 0;
  if (!rows) return out;
  rows->get_Count(&n);
  for (LONG i = 1; i <= n; ++i) {
    CComPtr<IRfcFields> row;
    rows->get_Item(i, &row);
    out.push_back(TextOf(FieldOf(row, name)));
  }
  return out;
}

// What a getter leaves in a variable that held the text "sentinel" before;
// the sentinel is freed when the getter replaced it.
template <class Get>
CComBSTR Overwritten(Get get) {
  BSTR sentinel = SysAllocString(u"sentinel");
  BSTR out = sentinel;
  get(&out);
  if (out != sentinel) SysFreeString(sentinel);
  CComBSTR result;
  result.Attach(out);
  return result;
}

inline VARTYPE Vt(const VARIANT& v) { return V_VT(&v); }
inline LONG I4(const VARIANT& v) { return V_I4(&v); }
inline double R8(const VARIANT& v) { return V_R8(&v); }
inline double Date(const VARIANT& v) { return V_DATE(&v); }

// ---- canned tables for RFC_READ_TABLE

struct FakeColumn {
  std::u16string name;
  int length;
  char16_t letter;
};

struct FakeTable {
  std::vector<FakeColumn> columns;
  std::vector<std::vector<std::u16string>> rows;  // values per column, ABAP text form
  bool badLength = false;                         // LENGTH goes out as a non-number
};

// What the last RFC_READ_TABLE call carried.
struct ReadRequest {
  CComVariant queryTable, delimiter, noData, rowCount, rowSkips;
  std::vector<std::u16string> options;
  std::vector<std::u16string> fields;
};

// ---- the back end behind the fake sessions

class FakeBackend {
 public:
  bool connected = true;
  bool callActive = false;
  int callImports = 0;  // ImportCallFromBackend runs
  int typeImports = 0;  // ImportTypeFromBackend runs
  std::vector<std::u16string> importedCalls;
  std::vector<VARIANT_BOOL> importFlags;
  std::vector<std::u16string> calledFunctions;
  std::vector<CComPtr<IFunctionCall>> sentCalls;

  std::map<std::u16string, FakeTable> tables;
  ReadRequest lastRead;
  // Answer of SUSR_LOGIN_CHECK_RFC: none, or the failure it reports.
  std::optional<RfcErrorRecord> loginCheckFailure;
  // Exporting UNICODE of SLDAG_CHECK_FOR_UNICODE.
  CComVariant unicodeValue{u"1"};
  // An import of this module sets Error although it succeeds.
  std::u16string importWithWarning;
  // Replaces the built-in answers when set.
  std::function<HRESULT(IFunctionCall*)> handler;
  // The imports raise what a failed accessor raises.
  bool importsRaise = false;
};

template <class Derived, class Itf>
class FakeSessionImpl : public ISessionImpl<Derived, Itf>, public FakeBackend {
  using Frame = ISessionImpl<Derived, Itf>;

 public:
  HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = connected ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_CallActive(VARIANT_BOOL* pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = callActive ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_SessionType(BSTR* pVal) override { return CComBSTR(u"FAKE").CopyTo(pVal); }
  HRESULT STDMETHODCALLTYPE Connect() override {
    if (connected) return ReportError(CLSID_SoapSession, 523);
    connected = true;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Disconnect() override {
    connected = false;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE AbortCall() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE CreateTransID(BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ConfirmTransID(BSTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CallTRFCFunction(BSTR, IFunctionCall*) override { return E_NOTIMPL; }

  HRESULT STDMETHODCALLTYPE CallFunction(IFunctionCall* call, VARIANT_BOOL) override {
    if (!call) return E_POINTER;
    if (!connected) return ReportError(CLSID_SoapSession, 520);
    if (callActive) return ReportError(CLSID_SoapSession, 522);
    this->ClearError();
    CComBSTR name;
    call->get_Function(&name);
    calledFunctions.push_back(Str(name));
    sentCalls.emplace_back(call);
    if (handler) return handler(call);
    const std::u16string fn = Str(name);
    if (fn == u"RFC_READ_TABLE" || fn == u"Z_READ_TABLE") return ReadTable(call);
    if (fn == u"SUSR_LOGIN_CHECK_RFC") {
      if (loginCheckFailure) Fail(*loginCheckFailure, fn);
      return S_OK;
    }
    if (fn == u"SUSR_USER_CHANGE_PASSWORD_RFC") return S_OK;
    if (fn == u"SLDAG_CHECK_FOR_UNICODE") {
      CComPtr<IRfcParameter> p = Param(Exporting(call), u"UNICODE");
      return p ? p->put_value(unicodeValue) : E_FAIL;
    }
    Fail({RFCERROR_APPLICATION_EXCEPTION, u"FU_NOT_FOUND", u"FU_NOT_FOUND"}, fn);
    return S_OK;
  }

  // The failure as the back end records it, with the module's name.
  void Fail(const RfcErrorRecord& record, const std::u16string& module) {
    this->SetError(record);
    this->ErrorInfoObject()->put_ModuleName(CComBSTR(std::u16string_view(module)));
  }
  HRESULT Fire() { return this->FireCallFinished(); }
  std::u16string Option(std::u16string_view name) const { return this->OptionValue(name); }
  CLogonData* LogonObject() const { return this->Logon(); }

 private:
  HRESULT ImportTypeFromBackend(BSTR name, IRfcType* type) override {
    if (!connected) return ReportError(CLSID_SoapSession, 520);
    ++typeImports;
    if (importsRaise) throw CXCOMError(E_INVALIDARG);
    if (Str(name) != u"ZSTRUCT") {
      Fail({RFCERROR_APPLICATION_EXCEPTION, u"NOT_FOUND", u"NOT_FOUND"}, u"RFC_GET_NAMETAB");
      return ReportError(CLSID_SoapSession, 524);
    }
    type->DefineStruct(name);
    type->AddScalarStructField(CComBSTR(u"ID"), TYPE_INT, 4, 0, -1, -1, -1, -1);
    type->AddScalarStructField(CComBSTR(u"TEXT"), TYPE_CHAR, 20, 0, -1, -1, -1, -1);
    return S_OK;
  }

  HRESULT ImportCallFromBackend(BSTR name, VARIANT_BOOL ignore, IFunctionCall* call) override {
    if (!connected) return ReportError(CLSID_SoapSession, 520);
    ++callImports;
    if (importsRaise) throw CXCOMError(E_INVALIDARG);
    const std::u16string fn = Str(name);
    importedCalls.push_back(fn);
    importFlags.push_back(ignore);
    CComVariant empty;
    if (fn == u"RFC_READ_TABLE" || fn == u"Z_READ_TABLE" || fn == importWithWarning) {
      CComPtr<IRfcParameters> in = Importing(call), tabs = Tables(call);
      in->AddScalar(CComBSTR(u"QUERY_TABLE"), TYPE_CHAR, 30, 0, empty);
      in->AddScalar(CComBSTR(u"DELIMITER"), TYPE_CHAR, 1, 0, empty);
      in->AddScalar(CComBSTR(u"NO_DATA"), TYPE_CHAR, 1, 0, empty);
      in->AddScalar(CComBSTR(u"ROWSKIPS"), TYPE_INT, 4, 0, empty);
      in->AddScalar(CComBSTR(u"ROWCOUNT"), TYPE_INT, 4, 0, empty);
      tabs->AddTable(CComBSTR(u"OPTIONS"), StructType(u"RFC_DB_OPT", {{u"TEXT", TYPE_CHAR, 72}}));
      tabs->AddTable(CComBSTR(u"FIELDS"), StructType(u"RFC_DB_FLD", {{u"FIELDNAME", TYPE_CHAR, 30},
                                                                     {u"OFFSET", TYPE_NUM, 6},
                                                                     {u"LENGTH", TYPE_NUM, 6},
                                                                     {u"TYPE", TYPE_CHAR, 1},
                                                                     {u"FIELDTEXT", TYPE_CHAR, 60}}));
      tabs->AddTable(CComBSTR(u"DATA"), StructType(u"TAB512", {{u"WA", TYPE_CHAR, 512}}));
      if (fn == importWithWarning) Fail({RFCERROR_SYSTEM_FAILURE, u"WARNING", u"import warning"}, fn);
      return S_OK;
    }
    if (fn == u"SUSR_USER_CHANGE_PASSWORD_RFC") {
      CComPtr<IRfcParameters> in = Importing(call);
      in->AddScalar(CComBSTR(u"PASSWORD"), TYPE_CHAR, 40, 0, empty);
      in->AddScalar(CComBSTR(u"NEW_PASSWORD"), TYPE_CHAR, 40, 0, empty);
      return S_OK;
    }
    if (fn == u"SLDAG_CHECK_FOR_UNICODE") {
      Exporting(call)->AddScalar(CComBSTR(u"UNICODE"), TYPE_CHAR, 1, 0, empty);
      return S_OK;
    }
    if (fn == u"Z_TEST") {
      Importing(call)->AddParameter(CComBSTR(u"IS_IN"), StructType(u"ZIN", {{u"A", TYPE_CHAR, 4}}));
      Exporting(call)->AddScalar(CComBSTR(u"EV_OUT"), TYPE_INT, 4, 0, empty);
      Tables(call)->AddTable(CComBSTR(u"ET_ROWS"), StructType(u"ZROW", {{u"B", TYPE_CHAR, 8}}));
      return S_OK;
    }
    Fail({RFCERROR_APPLICATION_EXCEPTION, u"FU_NOT_FOUND", u"FU_NOT_FOUND"}, u"RFC_GET_FUNCTION_INTERFACE");
    return ReportError(CLSID_SoapSession, 540);
  }

  // RFC_READ_TABLE over the canned tables: fields joined by the delimiter,
  // the row text cut after its last non-blank character as the transport does.
  HRESULT ReadTable(IFunctionCall* call) {
    CComPtr<IRfcParameters> in = Importing(call);
    lastRead = ReadRequest{};
    lastRead.queryTable = ParamValue(in, u"QUERY_TABLE");
    lastRead.delimiter = ParamValue(in, u"DELIMITER");
    lastRead.noData = ParamValue(in, u"NO_DATA");
    lastRead.rowCount = ParamValue(in, u"ROWCOUNT");
    lastRead.rowSkips = ParamValue(in, u"ROWSKIPS");
    lastRead.options = ColumnTexts(TableRowsOf(call, u"OPTIONS"), u"TEXT");
    lastRead.fields = ColumnTexts(TableRowsOf(call, u"FIELDS"), u"FIELDNAME");

    const std::u16string table = RightTrim(TextOf(lastRead.queryTable));
    auto it = tables.find(table);
    if (it == tables.end()) {
      Fail({RFCERROR_APPLICATION_EXCEPTION, u"TABLE_NOT_AVAILABLE", u"TABLE_NOT_AVAILABLE"}, u"RFC_READ_TABLE");
      return S_OK;
    }
    const FakeTable& t = it->second;
    std::vector<size_t> selected;
    if (lastRead.fields.empty()) {
      for (size_t i = 0; i < t.columns.size(); ++i) selected.push_back(i);
    } else {
      for (const std::u16string& wanted : lastRead.fields) {
        size_t i = 0;
        while (i < t.columns.size() && t.columns[i].name != RightTrim(wanted)) ++i;
        if (i == t.columns.size()) {
          Fail({RFCERROR_APPLICATION_EXCEPTION, u"FIELD_NOT_VALID", u"FIELD_NOT_VALID"}, u"RFC_READ_TABLE");
          return S_OK;
        }
        selected.push_back(i);
      }
    }
    const std::u16string delimiter = TextOf(lastRead.delimiter);
    CComPtr<IRfcRows> fieldRows = TableRowsOf(call, u"FIELDS");
    fieldRows->RemoveAll();
    int offset = 0;
    for (size_t i : selected) {
      const FakeColumn& c = t.columns[i];
      CComPtr<IRfcFields> row;
      fieldRows->AddRow(&row);
      PutField(row, u"FIELDNAME", CComVariant(c.name.c_str()));
      char16_t number[7];
      for (int k = 5, v = offset; k >= 0; --k, v /= 10) number[k] = static_cast<char16_t>(u'0' + v % 10);
      number[6] = 0;
      PutField(row, u"OFFSET", CComVariant(number));
      for (int k = 5, v = c.length; k >= 0; --k, v /= 10) number[k] = static_cast<char16_t>(u'0' + v % 10);
      PutField(row, u"LENGTH", CComVariant(t.badLength ? u"12a" : number));
      const char16_t type[2] = {c.letter, 0};
      PutField(row, u"TYPE", CComVariant(type));
      offset += c.length + static_cast<int>(delimiter.size());
    }
    const LONG skips = V_VT(&lastRead.rowSkips) == VT_I4 ? V_I4(&lastRead.rowSkips) : 0;
    const LONG count = V_VT(&lastRead.rowCount) == VT_I4 ? V_I4(&lastRead.rowCount) : 0;
    CComPtr<IRfcRows> data = TableRowsOf(call, u"DATA");
    for (size_t r = static_cast<size_t>(skips); r < t.rows.size(); ++r) {
      if (count > 0 && r >= static_cast<size_t>(skips + count)) break;
      std::u16string wa;
      for (size_t n = 0; n < selected.size(); ++n) {
        const FakeColumn& c = t.columns[selected[n]];
        std::u16string value = t.rows[r][selected[n]];
        value.resize(static_cast<size_t>(c.length), u' ');
        if (n > 0) wa += delimiter;
        wa += value;
      }
      CComPtr<IRfcFields> row;
      data->AddRow(&row);
      PutField(row, u"WA", CComVariant(RightTrim(wa).c_str()));
    }
    return S_OK;
  }
};

class CFakeSoapSession
    : public CComObjectBase<CFakeSoapSession, FakeSessionImpl<CFakeSoapSession, ISoapSession>,
                            IConnectionPointContainerImpl<CFakeSoapSession, CProxy_SessionEvents<CFakeSoapSession>>,
                            ISupportErrorInfoImpl<&IID_ISoapSession, &IID_ISession>> {
 public:
  static constexpr SessionBoundary kBoundary{CLSID_SoapSession, "CFakeSoapSession"};
  HRESULT STDMETHODCALLTYPE get_HttpSystemData(IHttpSystemData** pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = nullptr;
    return E_NOTIMPL;
  }
};

class CFakeRfcSession
    : public CComObjectBase<CFakeRfcSession, FakeSessionImpl<CFakeRfcSession, IRfcSession>,
                            IConnectionPointContainerImpl<CFakeRfcSession, CProxy_SessionEvents<CFakeRfcSession>>,
                            ISupportErrorInfoImpl<&IID_IRfcSession, &IID_ISession>> {
 public:
  static constexpr SessionBoundary kBoundary{CLSID_RfcSession, "CFakeRfcSession"};
  HRESULT STDMETHODCALLTYPE get_RfcSystemData(IRfcSystemData** pVal) override {
    if (!pVal) return E_POINTER;
    *pVal = nullptr;
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetSSO2Ticket(BSTR*) override { return E_NOTIMPL; }
};

inline CComPtr<CFakeSoapSession> NewSoapSession() {
  CComPtr<CFakeSoapSession> s;
  EXPECT_EQ(CFakeSoapSession::CreateInstance(&s.p), S_OK);
  return s;
}

inline CComPtr<CFakeRfcSession> NewRfcSession() {
  CComPtr<CFakeRfcSession> s;
  EXPECT_EQ(CFakeRfcSession::CreateInstance(&s.p), S_OK);
  return s;
}

// The thread's error record, taken.
struct ErrorRecord {
  bool present = false;
  std::u16string source;
  std::u16string description;
};

inline ErrorRecord TakeError() {
  ErrorRecord r;
  CComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, &info) == S_OK && info) {
    r.present = true;
    CComBSTR source, description;
    info->GetSource(&source);
    info->GetDescription(&description);
    r.source = Str(source);
    r.description = Str(description);
  }
  return r;
}

}  // namespace session_test
