#include "platform/comdef.h"

#include <gtest/gtest.h>

#include <thread>

TEST(ErrorInfo, RecordIsPerThreadAndTakenOnce) {
  CComPtr<ICreateErrorInfo> create;
  ASSERT_EQ(CreateErrorInfo(&create), S_OK);
  create->SetSource(const_cast<LPOLESTR>(u"Veltrane.RfcType.1"));
  create->SetDescription(const_cast<LPOLESTR>(u"Object is not a table"));
  create->SetGUID(IID_IDispatch);
  create->SetHelpContext(7);
  CComQIPtr<IErrorInfo> info(create.p);
  ASSERT_TRUE(info);
  ASSERT_EQ(SetErrorInfo(0, info), S_OK);

  std::thread([] {
    IErrorInfo* other = reinterpret_cast<IErrorInfo*>(1);
    EXPECT_EQ(GetErrorInfo(0, &other), S_FALSE);
    EXPECT_EQ(other, nullptr);
  }).join();

  CComPtr<IErrorInfo> got;
  ASSERT_EQ(GetErrorInfo(0, &got), S_OK);
  CComBSTR source, description;
  got->GetSource(&source);
  got->GetDescription(&description);
  EXPECT_EQ(source.View(), u"Veltrane.RfcType.1");
  EXPECT_EQ(description.View(), u"Object is not a table");
  GUID g;
  got->GetGUID(&g);
  EXPECT_EQ(g, IID_IDispatch);
  DWORD ctx = 0;
  got->GetHelpContext(&ctx);
  EXPECT_EQ(ctx, 7u);

  IErrorInfo* again = nullptr;
  EXPECT_EQ(GetErrorInfo(0, &again), S_FALSE);  // reading empties the slot
  EXPECT_EQ(SetErrorInfo(1, nullptr), E_INVALIDARG);
}

TEST(ErrorInfo, NullClearsTheSlot) {
  CComPtr<ICreateErrorInfo> create;
  CreateErrorInfo(&create);
  CComQIPtr<IErrorInfo> info(create.p);
  SetErrorInfo(0, info);
  SetErrorInfo(0, nullptr);
  IErrorInfo* got = nullptr;
  EXPECT_EQ(GetErrorInfo(0, &got), S_FALSE);
}

TEST(ComError, CarriesResultAndRecord) {
  CComPtr<ICreateErrorInfo> create;
  CreateErrorInfo(&create);
  create->SetDescription(const_cast<LPOLESTR>(u"boom"));
  CComQIPtr<IErrorInfo> info(create.p);
  try {
    throw _com_error(E_INVALIDARG, info, true);
  } catch (const _com_error& e) {
    EXPECT_EQ(e.Error(), E_INVALIDARG);
    EXPECT_EQ(e.Description().View(), u"boom");
  }
  _com_error plain(DISP_E_TYPEMISMATCH);
  EXPECT_EQ(plain.Description().Length(), 0u);
  EXPECT_EQ(_com_error(static_cast<HRESULT>(0x80040201)).WCode(), 1);
}
