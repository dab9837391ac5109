// What the terminal in front of vessa-storage can show, from the environment and the standard streams.
// Colour is never used; these decide the tree's drawing, the progress line and the table's width.
#pragma once

#include <cstddef>

namespace vessa::cli {

// Whether the locale (LC_ALL, else LC_CTYPE, else LANG) encodes characters as UTF-8, so that the
// tree's box-drawing characters show; an unset environment is the C locale, which does not.
bool utf8Locale();

// Whether standard error is a terminal that obeys the codes that rewrite a line in place (TERM set
// and not "dumb").
bool progressShowable();

// The width of the terminal that standard output is, in characters; 0 when it is none (a pipe or a
// file gets every character).
std::size_t outputColumns();

}  // namespace vessa::cli
