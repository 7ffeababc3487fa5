// Entry points of function and type descriptions and their repositories.
#include "nwrfc_sdk/api.h"

using namespace nwrfc;

namespace {

std::u16string repository(const SAP_UC* id) { return std::u16string(ucView(id)); }

void requireName(const SAP_UC* name, const char* what) {
  if (!name || !*name) fail(RFC_INVALID_PARAMETER, std::string("No ") + what + " name was given");
}

}  // namespace

RFC_FUNCTION_DESC_HANDLE RfcGetFunctionDesc(RFC_CONNECTION_HANDLE rfcHandle, const SAP_UC* funcName,
                                            RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_FUNCTION_DESC_HANDLE>(errorInfo, [&] {
    Connection& c = openConnection(rfcHandle);
    requireName(funcName, "function");
    std::lock_guard lock(c.callMutex());
    trace().call(Entry::RfcGetFunctionDesc, toUtf8(ucView(funcName)));
    return handleOf(c.functionDescription(ucView(funcName)).get());
  });
}

RFC_TYPE_DESC_HANDLE RfcGetTypeDesc(RFC_CONNECTION_HANDLE rfcHandle, const SAP_UC* typeName,
                                    RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_TYPE_DESC_HANDLE>(errorInfo, [&] {
    Connection& c = openConnection(rfcHandle);
    requireName(typeName, "type");
    std::lock_guard lock(c.callMutex());
    trace().call(Entry::RfcGetTypeDesc, toUtf8(ucView(typeName)));
    return handleOf(c.typeDescription(ucView(typeName)).get());
  });
}

RFC_FUNCTION_DESC_HANDLE RfcGetCachedFunctionDesc(const SAP_UC* repositoryID, const SAP_UC* funcName,
                                                  RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_FUNCTION_DESC_HANDLE>(errorInfo, [&] {
    requireName(funcName, "function");
    FunctionPtr f = descriptions().cachedFunction(repository(repositoryID), ucView(funcName));
    if (!f) fail(RFC_NOT_FOUND, "Function " + toUtf8(ucView(funcName)) + " is not in the repository");
    return handleOf(f.get());
  });
}

RFC_TYPE_DESC_HANDLE RfcGetCachedTypeDesc(const SAP_UC* repositoryID, const SAP_UC* typeName,
                                          RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_TYPE_DESC_HANDLE>(errorInfo, [&] {
    requireName(typeName, "type");
    TypePtr t = descriptions().cachedType(repository(repositoryID), ucView(typeName));
    if (!t) fail(RFC_NOT_FOUND, "Type " + toUtf8(ucView(typeName)) + " is not in the repository");
    return handleOf(t.get());
  });
}

RFC_RC RfcAddFunctionDesc(const SAP_UC* repositoryID, RFC_FUNCTION_DESC_HANDLE funcDesc, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { descriptions().cache(repository(repositoryID), functionOf(funcDesc)); });
}

RFC_RC RfcAddTypeDesc(const SAP_UC* repositoryID, RFC_TYPE_DESC_HANDLE typeHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { descriptions().cache(repository(repositoryID), typeOf(typeHandle)); });
}

RFC_RC RfcClearRepository(const SAP_UC* repositoryID, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    if (repositoryID) {
      const std::u16string id = repository(repositoryID);
      descriptions().clear(&id);
    } else {
      descriptions().clear(nullptr);
    }
  });
}

RFC_FUNCTION_DESC_HANDLE RfcCreateFunctionDesc(const SAP_UC* name, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_FUNCTION_DESC_HANDLE>(errorInfo, [&] {
    requireName(name, "function");
    if (ucLength(name) > 30) fail(RFC_INVALID_PARAMETER, "Function name " + toUtf8(ucView(name)) + " is too long");
    return handleOf(descriptions().createFunction(std::u16string(ucView(name))).get());
  });
}

RFC_RC RfcGetFunctionName(RFC_FUNCTION_DESC_HANDLE funcDesc, RFC_ABAP_NAME bufferForName, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(bufferForName, "bufferForName");
    copyTerminated(bufferForName, 31, std::u16string_view(functionOf(funcDesc)->name()));
  });
}

RFC_RC RfcAddParameter(RFC_FUNCTION_DESC_HANDLE funcDesc, const RFC_PARAMETER_DESC* paramDescr,
                       RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(paramDescr, "paramDescr");
    f->addParameter(*paramDescr);
  });
}

RFC_RC RfcGetParameterCount(RFC_FUNCTION_DESC_HANDLE funcDesc, unsigned* count, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(count, "count");
    *count = static_cast<unsigned>(f->parameterCount());
  });
}

RFC_RC RfcGetParameterDescByIndex(RFC_FUNCTION_DESC_HANDLE funcDesc, unsigned index, RFC_PARAMETER_DESC* paramDesc,
                                  RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(paramDesc, "paramDesc");
    if (index >= f->parameterCount())
      fail(RFC_INVALID_PARAMETER, "Index " + std::to_string(index) + " is out of range: " + toUtf8(f->name()) +
                                      " has " + std::to_string(f->parameterCount()) + " parameters");
    *paramDesc = f->parameter(index);
  });
}

RFC_RC RfcGetParameterDescByName(RFC_FUNCTION_DESC_HANDLE funcDesc, const SAP_UC* name, RFC_PARAMETER_DESC* paramDesc,
                                 RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(paramDesc, "paramDesc");
    const int i = f->findParameter(ucView(name));
    if (i < 0) fail(RFC_INVALID_PARAMETER, "field '" + toUtf8(ucView(name)) + "' not found");
    *paramDesc = f->parameter(static_cast<size_t>(i));
  });
}

RFC_RC RfcAddException(RFC_FUNCTION_DESC_HANDLE funcDesc, const RFC_EXCEPTION_DESC* excDesc,
                       RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(excDesc, "excDesc");
    f->addException(*excDesc);
  });
}

RFC_RC RfcGetExceptionCount(RFC_FUNCTION_DESC_HANDLE funcDesc, unsigned* count, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(count, "count");
    *count = static_cast<unsigned>(f->exceptionCount());
  });
}

RFC_RC RfcGetExceptionDescByIndex(RFC_FUNCTION_DESC_HANDLE funcDesc, unsigned index, RFC_EXCEPTION_DESC* excDesc,
                                  RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(excDesc, "excDesc");
    if (index >= f->exceptionCount())
      fail(RFC_INVALID_PARAMETER, "Index " + std::to_string(index) + " is out of range");
    *excDesc = f->exception(index);
  });
}

RFC_RC RfcGetExceptionDescByName(RFC_FUNCTION_DESC_HANDLE funcDesc, const SAP_UC* name, RFC_EXCEPTION_DESC* excDesc,
                                 RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr f = functionOf(funcDesc);
    requireOut(excDesc, "excDesc");
    const int i = f->findException(ucView(name));
    if (i < 0) fail(RFC_INVALID_PARAMETER, "exception '" + toUtf8(ucView(name)) + "' not found");
    *excDesc = f->exception(static_cast<size_t>(i));
  });
}

RFC_RC RfcDestroyFunctionDesc(RFC_FUNCTION_DESC_HANDLE funcDesc, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { descriptions().destroy(funcDesc); });
}

RFC_TYPE_DESC_HANDLE RfcCreateTypeDesc(const SAP_UC* name, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_TYPE_DESC_HANDLE>(errorInfo, [&] {
    requireName(name, "type");
    if (ucLength(name) > 30) fail(RFC_INVALID_PARAMETER, "Type name " + toUtf8(ucView(name)) + " is too long");
    return handleOf(descriptions().createType(std::u16string(ucView(name))).get());
  });
}

RFC_RC RfcAddTypeField(RFC_TYPE_DESC_HANDLE typeHandle, const RFC_FIELD_DESC* fieldDescr, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TypePtr t = typeOf(typeHandle);
    requireOut(fieldDescr, "fieldDescr");
    t->addField(*fieldDescr);
  });
}

RFC_RC RfcSetTypeLength(RFC_TYPE_DESC_HANDLE typeHandle, unsigned nucByteLength, unsigned ucByteLength,
                        RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { typeOf(typeHandle)->setLength(nucByteLength, ucByteLength); });
}

RFC_RC RfcGetTypeName(RFC_TYPE_DESC_HANDLE typeHandle, RFC_ABAP_NAME bufferForName, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TypePtr t = typeOf(typeHandle);
    requireOut(bufferForName, "bufferForName");
    copyTerminated(bufferForName, 31, std::u16string_view(t->name()));
  });
}

RFC_RC RfcGetFieldCount(RFC_TYPE_DESC_HANDLE typeHandle, unsigned* count, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TypePtr t = typeOf(typeHandle);
    requireOut(count, "count");
    *count = static_cast<unsigned>(t->fieldCount());
  });
}

RFC_RC RfcGetFieldDescByIndex(RFC_TYPE_DESC_HANDLE typeHandle, unsigned index, RFC_FIELD_DESC* fieldDescr,
                              RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TypePtr t = typeOf(typeHandle);
    requireOut(fieldDescr, "fieldDescr");
    if (index >= t->fieldCount())
      fail(RFC_INVALID_PARAMETER, "Index " + std::to_string(index) + " is out of range: " + toUtf8(t->name()) +
                                      " has " + std::to_string(t->fieldCount()) + " fields");
    *fieldDescr = t->field(index);
  });
}

RFC_RC RfcGetFieldDescByName(RFC_TYPE_DESC_HANDLE typeHandle, const SAP_UC* name, RFC_FIELD_DESC* fieldDescr,
                             RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TypePtr t = typeOf(typeHandle);
    requireOut(fieldDescr, "fieldDescr");
    const int i = t->findField(ucView(name));
    if (i < 0) fail(RFC_INVALID_PARAMETER, "field '" + toUtf8(ucView(name)) + "' not found");
    *fieldDescr = t->field(static_cast<size_t>(i));
  });
}

RFC_RC RfcGetTypeLength(RFC_TYPE_DESC_HANDLE typeHandle, unsigned* nucByteLength, unsigned* ucByteLength,
                        RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TypePtr t = typeOf(typeHandle);
    if (nucByteLength) *nucByteLength = t->nucLength();
    if (ucByteLength) *ucByteLength = t->ucLength();
  });
}

RFC_RC RfcDestroyTypeDesc(RFC_TYPE_DESC_HANDLE typeHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { descriptions().destroy(typeHandle); });
}

RFC_FUNCTION_DESC_HANDLE RfcDescribeFunction(RFC_FUNCTION_HANDLE funcHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_FUNCTION_DESC_HANDLE>(errorInfo,
                                                 [&] { return handleOf(function(funcHandle).description().get()); });
}

RFC_TYPE_DESC_HANDLE RfcDescribeType(DATA_CONTAINER_HANDLE dataHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_TYPE_DESC_HANDLE>(errorInfo, [&] {
    Container& c = container(dataHandle);
    if (auto* s = dynamic_cast<StructureContainer*>(&c)) return handleOf(s->type().get());
    if (auto* v = dynamic_cast<StructView*>(&c)) return handleOf(v->type().get());
    if (auto* t = dynamic_cast<TableContainer*>(&c)) return handleOf(t->rowType().get());
    fail(RFC_INVALID_PARAMETER, "A function has no type description; use RfcDescribeFunction");
  });
}
