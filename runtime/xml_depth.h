// How deep the elements of an XML text nest, read before the text is parsed,
// so that a document nested deeper than a reader follows is refused without
// recursing into it.
#pragma once

#include <cstddef>
#include <string_view>

// The deepest nesting of elements in s. Comments, CDATA sections,
// declarations and processing instructions do not nest, quoted attribute
// values are skipped, the text ends at a NUL.
size_t ElementDepth(std::string_view s);

// The same for text that ends at its terminating NUL, found on the way.
size_t ElementDepth(const char* text);
