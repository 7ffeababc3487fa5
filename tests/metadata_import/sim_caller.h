// A minimal synchronous caller for the import tests: posts the codec's
// request to veltrane-sim with Basic logon and reads the answer into the
// call, judging status and faults as the SOAP session does.
#pragma once

#include <curl/curl.h>

#include <map>
#include <string>

#include "model/model.h"
#include "platform/atlbase.h"
#include "runtime/exceptions.h"
#include "soap/soap_rfc_xml.h"

namespace import_test {

class SimCaller {
 public:
  explicit SimCaller(std::string baseUrl)
      : m_url(std::move(baseUrl) + "/sap/bc/soap/rfc?sap-client=001&sap-language=EN") {}

  // Server-side failure of the last call (the session's Error).
  bool error = false;
  long group = 0;
  std::u16string faultText;
  std::u16string detail;
  // Calls made, by function name.
  std::map<std::u16string, int> calls;
  int total = 0;

  HRESULT Call(IFunctionCall* call) {
    error = false;
    group = 0;
    faultText.clear();
    detail.clear();
    CComBSTR name;
    call->get_Function(&name);
    ++calls[std::u16string(name.View())];
    ++total;
    HRESULT hr = PruneOptionalParameters(call);
    if (FAILED(hr)) return hr;
    std::string request = SoapRfcXML::BuildEnvelope(call);
    long status = 0;
    std::string body;
    if (!Post(request, &status, &body)) return E_FAIL;
    if (status != 200 && status != 500) {
      error = true;
      group = 104;
      return S_OK;
    }
    try {
      SoapRfcXML::ParseResponse(body, call);
    } catch (const CXSoapErrorResponse& e) {
      error = true;
      group = e.Group();
      faultText = e.FaultText();
      detail = e.Detail();
    } catch (const std::exception& e) {
      error = true;
      group = 104;
      faultText = u"SOAP_ERROR";
    }
    return S_OK;
  }

 private:
  static size_t Collect(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
  }

  bool Post(const std::string& request, long* status, std::string* body) {
    CURL* curl = curl_easy_init();
    if (!curl) return false;
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: text/xml; charset=UTF-8");
    headers = curl_slist_append(headers, "SOAPAction: \"urn:sap-com:document:sap:rfc:functions\"");
    curl_easy_setopt(curl, CURLOPT_URL, m_url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.size()));
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    curl_easy_setopt(curl, CURLOPT_USERPWD, "DEMO:Welcome1");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &SimCaller::Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, body);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
    CURLcode rc = curl_easy_perform(curl);
    if (rc == CURLE_OK) curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return rc == CURLE_OK;
  }

  std::string m_url;
};

}  // namespace import_test
