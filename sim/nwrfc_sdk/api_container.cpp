// Entry points of functions, structures and tables, and of the rows of tables.
#include "nwrfc_sdk/api.h"

using namespace nwrfc;

namespace {

[[noreturn]] void cursorFailure(RFC_RC rc, const std::string& message) {
  fail(rc, RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE, message);
}

// The record of a structure handle for copying from it.
Record structureRecord(RFC_STRUCTURE_HANDLE h) {
  Container& c = container(h);
  if (c.objectKind() != ObjectKind::Structure) fail(RFC_INVALID_PARAMETER, "The handle is no structure");
  return c.record();
}

template <class H>
H handle(Container& c) {
  return handleOf<H>(&c);
}

}  // namespace

RFC_FUNCTION_HANDLE RfcCreateFunction(RFC_FUNCTION_DESC_HANDLE funcDescHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_FUNCTION_HANDLE>(errorInfo, [&] {
    return handle<RFC_FUNCTION_HANDLE>(*own(std::make_unique<FunctionContainer>(functionOf(funcDescHandle))));
  });
}

RFC_RC RfcDestroyFunction(RFC_FUNCTION_HANDLE funcHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionContainer& f = function(funcHandle);
    if (!disown(&f)) fail(RFC_ILLEGAL_STATE, "The function belongs to a server call and is destroyed with it");
  });
}

RFC_RC RfcSetParameterActive(RFC_FUNCTION_HANDLE funcHandle, const SAP_UC* paramName, int isActive,
                             RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionContainer& f = function(funcHandle);
    f.setActive(f.slotOf(paramName), isActive != 0);
  });
}

RFC_RC RfcIsParameterActive(RFC_FUNCTION_HANDLE funcHandle, const SAP_UC* paramName, int* isActive,
                            RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionContainer& f = function(funcHandle);
    requireOut(isActive, "isActive");
    *isActive = f.active(f.slotOf(paramName)) ? 1 : 0;
  });
}

RFC_STRUCTURE_HANDLE RfcCreateStructure(RFC_TYPE_DESC_HANDLE typeDescHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_STRUCTURE_HANDLE>(errorInfo, [&] {
    return handle<RFC_STRUCTURE_HANDLE>(*own(std::make_unique<StructureContainer>(typeOf(typeDescHandle))));
  });
}

RFC_RC RfcDestroyStructure(RFC_STRUCTURE_HANDLE structHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Container& c = container(structHandle);
    if (c.objectKind() != ObjectKind::Structure || !disown(&c))
      fail(RFC_ILLEGAL_STATE, "Only a structure made by RfcCreateStructure can be destroyed; this one has a parent");
  });
}

RFC_TABLE_HANDLE RfcCreateTable(RFC_TYPE_DESC_HANDLE typeDescHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_TABLE_HANDLE>(errorInfo, [&] {
    return handle<RFC_TABLE_HANDLE>(*own(std::make_unique<TableContainer>(typeOf(typeDescHandle), nullptr)));
  });
}

RFC_RC RfcDestroyTable(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    if (!disown(&table(tableHandle)))
      fail(RFC_ILLEGAL_STATE, "Only a table made by RfcCreateTable can be destroyed; this one has a parent");
  });
}

RFC_RC RfcGetStructure(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_STRUCTURE_HANDLE* structHandle,
                       RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(structHandle, "structHandle");
    *structHandle = nullptr;
    Container& c = container(dataHandle);
    *structHandle = handle<RFC_STRUCTURE_HANDLE>(c.structure(c.slotOf(name)));
  });
}

RFC_RC RfcGetTable(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, RFC_TABLE_HANDLE* tableHandle,
                   RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    requireOut(tableHandle, "tableHandle");
    *tableHandle = nullptr;
    Container& c = container(dataHandle);
    *tableHandle = handle<RFC_TABLE_HANDLE>(c.table(c.slotOf(name)));
  });
}

RFC_RC RfcSetStructure(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_STRUCTURE_HANDLE value,
                       RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Container& c = container(dataHandle);
    const unsigned slot = c.slotOf(name);
    const Record from = structureRecord(value);
    Container& target = c.structure(slot);
    const Record to = target.record();
    if (!sameLayout(*to.layout, *from.layout))
      fail(RFC_INVALID_PARAMETER, "The structure has another type than field '" + toUtf8(ucView(name)) + "'");
    copyRecord(*to.layout, from.data, *from.store, to.data, *to.store);
  });
}

RFC_RC RfcSetTable(DATA_CONTAINER_HANDLE dataHandle, const SAP_UC* name, const RFC_TABLE_HANDLE value,
                   RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Container& c = container(dataHandle);
    TableContainer& source = table(value);
    c.table(c.slotOf(name)).assign(source);
  });
}

RFC_RC RfcGetRowCount(RFC_TABLE_HANDLE tableHandle, unsigned* rowCount, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    requireOut(rowCount, "rowCount");
    *rowCount = static_cast<unsigned>(t.rows());
  });
}

RFC_RC RfcMoveToFirstRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (t.rows() == 0) cursorFailure(RFC_TABLE_MOVE_BOF, "No first row");
    t.moveTo(0);
  });
}

RFC_RC RfcMoveToLastRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (t.rows() == 0) cursorFailure(RFC_TABLE_MOVE_EOF, "No last row");
    t.moveTo(static_cast<long>(t.rows()) - 1);
  });
}

RFC_RC RfcMoveToNextRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (t.cursor() + 1 >= static_cast<long>(t.rows())) cursorFailure(RFC_TABLE_MOVE_EOF, "No next row");
    t.moveTo(t.cursor() + 1);
  });
}

RFC_RC RfcMoveToPreviousRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (t.cursor() <= 0) cursorFailure(RFC_TABLE_MOVE_BOF, "No previous row");
    t.moveTo(t.cursor() - 1);
  });
}

RFC_RC RfcMoveTo(RFC_TABLE_HANDLE tableHandle, unsigned index, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (index >= t.rows())
      cursorFailure(RFC_TABLE_MOVE_EOF, "Row " + std::to_string(index) + " does not exist; the table has " +
                                            std::to_string(t.rows()) + " rows");
    t.moveTo(static_cast<long>(index));
  });
}

RFC_STRUCTURE_HANDLE RfcGetCurrentRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_STRUCTURE_HANDLE>(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (t.cursor() < 0) cursorFailure(RFC_TABLE_MOVE_BOF, "No current row");
    if (t.cursor() >= static_cast<long>(t.rows())) cursorFailure(RFC_TABLE_MOVE_EOF, "No current row");
    return handle<RFC_STRUCTURE_HANDLE>(t.rowView(static_cast<size_t>(t.cursor())));
  });
}

RFC_STRUCTURE_HANDLE RfcAppendNewRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_STRUCTURE_HANDLE>(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    const size_t row = t.append(1);
    t.moveTo(static_cast<long>(row));
    return handle<RFC_STRUCTURE_HANDLE>(t.rowView(row));
  });
}

RFC_RC RfcAppendNewRows(RFC_TABLE_HANDLE tableHandle, unsigned numRows, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    const size_t first = t.append(numRows);
    if (numRows) t.moveTo(static_cast<long>(first));
  });
}

RFC_RC RfcReserveCapacity(RFC_TABLE_HANDLE tableHandle, unsigned numRows, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { table(tableHandle).reserve(numRows); });
}

RFC_STRUCTURE_HANDLE RfcInsertNewRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_STRUCTURE_HANDLE>(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    const size_t row = t.insert(t.cursor() < 0 ? 0 : static_cast<size_t>(t.cursor()));
    t.moveTo(static_cast<long>(row));
    return handle<RFC_STRUCTURE_HANDLE>(t.rowView(row));
  });
}

RFC_RC RfcAppendRow(RFC_TABLE_HANDLE tableHandle, RFC_STRUCTURE_HANDLE structHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    const Record from = structureRecord(structHandle);
    if (!sameLayout(t.layout(), *from.layout))
      fail(RFC_INVALID_PARAMETER, "The structure has another type than the rows");
    const size_t row = t.append(1);
    const Record to = t.row(row);
    copyRecord(t.layout(), from.data, *from.store, to.data, *to.store);
    t.moveTo(static_cast<long>(row));
  });
}

RFC_RC RfcInsertRow(RFC_TABLE_HANDLE tableHandle, RFC_STRUCTURE_HANDLE structHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    const Record from = structureRecord(structHandle);
    if (!sameLayout(t.layout(), *from.layout))
      fail(RFC_INVALID_PARAMETER, "The structure has another type than the rows");
    Store copyStore;  // staged first: the source may be a row of `t`, which the insert moves
    std::vector<unsigned char> staged(from.layout->size);
    copyRecord(t.layout(), from.data, *from.store, staged.data(), copyStore);
    const size_t row = t.insert(t.cursor() < 0 ? 0 : static_cast<size_t>(t.cursor()));
    const Record to = t.row(row);
    copyRecord(t.layout(), staged.data(), copyStore, to.data, *to.store);
    t.moveTo(static_cast<long>(row));
  });
}

RFC_RC RfcDeleteCurrentRow(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    TableContainer& t = table(tableHandle);
    if (t.cursor() < 0 || t.cursor() >= static_cast<long>(t.rows()))
      cursorFailure(RFC_TABLE_MOVE_BOF, "No current row");
    t.erase(static_cast<size_t>(t.cursor()));
    if (t.cursor() >= static_cast<long>(t.rows())) t.moveTo(static_cast<long>(t.rows()) - 1);
  });
}

RFC_RC RfcDeleteAllRows(RFC_TABLE_HANDLE tableHandle, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { table(tableHandle).clear(); });
}
