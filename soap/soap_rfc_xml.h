// The SOAP back end's wire format: one FunctionCall to the text of a SOAP
// 1.1 request, and the server's answer back into the same call. Stateless;
// the call is reached through its client-visible interfaces only.
//
// Failures (see also runtime/exceptions.h):
// - a SOAP fault: CXSoapErrorResponse, group 105 (RFCERROR_APPLICATION_EXCEPTION)
//   when the detail holds "<function>.Exception", else 102
//   (RFCERROR_COMMUNICATION);
// - unreadable XML, no Envelope, no Body, neither ".Response" nor Fault, or
//   an answer that lacks the element of an expected parameter or field:
//   CXVeltrane SOAP_ERROR with the text of the case;
// - a value that does not convert: CXVeltrane of the conversion's kind;
// - a failing interface call: CXCOMError; a null interface: _com_error(E_POINTER);
// - invalid UTF-16 or UTF-8: std::range_error("bad conversion").
#pragma once

#include <string>
#include <string_view>

#include "platform/atlbase.h"
#include "veltrane_tlb.h"

namespace rapidxml {
template <class Ch>
class xml_document;
template <class Ch>
class xml_node;
}  // namespace rapidxml

namespace SoapRfcXML {

using XmlDocument = rapidxml::xml_document<char>;
using XmlNode = rapidxml::xml_node<char>;

// The namespaces of the format.
inline constexpr const char* kEnvelopeNamespace = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr const char* kRfcNamespace = "urn:sap-com:document:sap:rfc:functions";

// ------------------------------------------------------------- writing

// The whole request for call: UTF-8, no XML declaration, one tab per depth,
// ending in two line feeds. Traces "built envelope\n%1%" at level 3.
std::string BuildEnvelope(IFunctionCall* call);

// Appends the elements of one parameter group (Importing, Changing or
// Tables) to the function element. A parameter that is empty and not
// requested is skipped. groupName ("IMPORTING", "CHANGING", "TABLES") is
// used in failure texts only.
void PutParams(XmlDocument& doc, XmlNode* function, IRfcParameters* params, const char16_t* groupName);

// Appends the element of one field by its kind; complex and undefined
// kinds write nothing.
void PutField(XmlDocument& doc, XmlNode* parent, IRfcField* field);

// Appends one element with the value text of a scalar field.
void PutScalarValue(XmlDocument& doc, XmlNode* parent, IRfcField* field);

// Appends the members of a structure or row to element.
void PutStructValue(XmlDocument& doc, XmlNode* element, IRfcFields* fields);

// The value text of a scalar of type (writer rules), UTF-8.
std::string RfcValueToString(IRfcType* type, const VARIANT& value);
std::string RfcValueToString(ABAPTYPE type, const VARIANT& value);

// -------------------------------------------------------------- reading

// Fills Exporting, Changing and Tables of call from the answer's body.
// Traces "Parsing response:\n%1%" at level 3 first.
void ParseResponse(std::string_view body, IFunctionCall* call);

// Reads every parameter of one group from the ".Response" element.
// groupName ("EXPORTING", "CHANGING", "TABLES") is used in failure texts.
void GetParams(const XmlNode* response, IRfcParameters* params, const char16_t* groupName);

// Reads one field from the child of parent named like it.
void GetField(const XmlNode* parent, IRfcField* field);

// Converts the text of node and puts it as the field's value.
void GetScalarValue(const XmlNode* node, IRfcField* field);

// Reads every member of a structure or row from node.
void GetStructValue(const XmlNode* node, IRfcFields* fields);

// The value of a scalar of type from its answer text (reader rules).
CComVariant RfcValueFromString(IRfcType* type, std::u16string_view text);
CComVariant RfcValueFromString(ABAPTYPE type, std::u16string_view text);

}  // namespace SoapRfcXML
