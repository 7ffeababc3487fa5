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

// Copies text to out (text.size() + 1 bytes: the text and a NUL) and tells
// whether its elements, up to the first NUL, nest deeper than limit, as
// ElementDepth(text) > limit does, in one pass: each piece is measured while
// it is still in the cache. A NUL inside a comment, CDATA section or
// declaration that reaches into a later piece (32 KiB) may be passed over,
// which can only count more. When true, the copy may be incomplete.
bool CopyElementsDeeperThan(std::string_view text, char* out, size_t limit);
