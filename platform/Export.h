// What the shared library lets its users link to. The library is built with hidden symbols; a class or
// function marked VESSA_API is part of its interface (the installed headers) and keeps its symbol
// visible, typeinfo and virtual tables included, so that exceptions and objects cross into programs.
// Everything else stays inside the library, where it may change without a new soname.
#pragma once

#define VESSA_API __attribute__((visibility("default")))
