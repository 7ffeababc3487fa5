// CRfcField: one value of the shape its type gives (IRfcField): a scalar
// value, the members of a structure, or the rows of a table. Setting a type
// builds the value tree at once.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/collection.h"
#include "model/model_object.h"
#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcFields;
class CRfcRows;

// Internal type of a field: how it was shaped.
enum FIELDSHAPE : ULONG { FIELDSHAPE_NONE = 0, FIELDSHAPE_SCALAR = 1, FIELDSHAPE_STRUCT = 2, FIELDSHAPE_TABLE = 3 };

class CRfcField : public CComObjectBase<CRfcField, CoClassRfcField<CRfcField>, CModelObjectImpl<CRfcField>> {
 public:
  // A new field holds an empty string.
  CRfcField();
  ~CRfcField() override;

  // IRfcField
  VELTRANE_DECL_IRFCFIELD

  // Types being shaped, outermost first; guards against a type that
  // contains itself.
  using ShapePath = std::vector<IRfcType*>;

  // What the rows of one table share: the keys of the last row built and
  // the map over them, taken over by the next row with the same keys.
  struct RowIndexCache {
    std::vector<std::u16string> keys;
    std::shared_ptr<const CollectionIndex> index;
  };

  // The members of a structure type as a new RfcFields, one shaped field per
  // member. Fails with 514 for a structure without members.
  static HRESULT BuildStructFields(IRfcType* type, ShapePath& path, CComPtr<CRfcFields>& out,
                                   RowIndexCache* rowCache = nullptr);

  // The shaping of a row structure, read once for many rows: the type and
  // each member (name, type, kind), without references of their own. Only
  // for types that are all the model's own, whose reads cannot fail.
  struct RowPlan {
    struct Member {
      std::u16string_view name;
      IRfcType* type;
      RFCTYPEKIND kind;
    };
    IRfcType* type = nullptr;
    std::vector<Member> members;
  };

  // Reads the plan of a structure type. planned is false, with S_OK, when
  // the type or a member is not the model's own. Fails with 514 for a
  // structure without members, as BuildStructFields does.
  static HRESULT BuildRowPlan(IRfcType* type, RowPlan& plan, bool* planned);

  // A new row of a plan, shaped as BuildStructFields shapes it, sharing
  // index, the map of the plan's member names. cells, if given, receives
  // its members.
  static HRESULT BuildRow(const RowPlan& plan, const std::shared_ptr<const CollectionIndex>& index,
                          CComPtr<CRfcFields>& out, std::vector<CRfcField*>* cells);

  // A field that is shaped right after creation; it skips the empty string
  // that shaping would clear anyway.
  static HRESULT CreateForShaping(CRfcField** out);

  HRESULT Shape(IRfcType* type, ShapePath& path);

  // Takes over *value as put_value would store it; *value is left VT_EMPTY.
  // A VT_BYREF value is copied as put_value copies it, then cleared.
  HRESULT AttachValue(VARIANT* value);

  const std::u16string& Name() const { return m_name; }
  void SetName(std::u16string_view name) { m_name.assign(name); }
  FIELDSHAPE ShapeKind() const { return m_shape; }
  const VARIANT& Value() const { return m_value; }
  IRfcType* TypePtr() const { return m_type.p; }
  CRfcFields* FieldsPtr() const { return m_fields.p; }
  CRfcRows* RowsPtr() const { return m_rows.p; }

 private:
  struct NoValue {};
  explicit CRfcField(NoValue);

  HRESULT IsEmptyAt(int depth, VARIANT_BOOL* pVal);

  std::u16string m_name;
  CComPtr<IRfcType> m_type;
  CComVariant m_value;
  CComPtr<CRfcFields> m_fields;
  CComPtr<CRfcRows> m_rows;
  FIELDSHAPE m_shape = FIELDSHAPE_NONE;
};
