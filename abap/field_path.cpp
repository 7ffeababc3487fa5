#include "abap/field_path.h"

#include <vector>

std::u16string FieldPath::Text() const {
  std::vector<const FieldPath*> chain;
  for (const FieldPath* p = this; p; p = p->m_parent) chain.push_back(p);
  std::u16string text;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    const FieldPath* p = *it;
    if (p->m_row > 0) {
      const std::string digits = std::to_string(p->m_row);
      text += u"[";
      text.append(digits.begin(), digits.end());
      text += u"]";
    } else {
      if (!text.empty()) text += u"-";
      text += p->m_field;
    }
  }
  return text;
}
