// One line of a dictionary's text, to and from name and value.
//
//   DictLL_Line line;
//   while (DictLL_ReadLine(stream, &line) == DICTLL_LINE) ...
//
//   key = value            # a bare value ends at a blank or "#"
//   key = "a value"        # a quoted one at the next quote
//   key = "one|0Aline"     # in both, "|" and two hexadecimal digits stand for a byte
//
// A name is one or more bytes other than blanks, "#" and "="; blanks are spaces and tabs. No part of a key
// line but its comment may hold a NUL.
#ifndef OST_PUBLIC_DICTLL_H
#define OST_PUBLIC_DICTLL_H

#include <cstddef>
#include <cstdio>
#include <string_view>

#include "dynbuf.h"
#include "owned.h"

struct DictLL_Line {
  OwnedString text;  // as it was read, without the line end; a NUL stands behind it
  size_t textSize = 0;
  std::string_view name;   // lies in the text; its data are null when this is no key line
  std::string_view value;  // without its escapes, and null beside the name; it may hold NULs
  OwnedString unescaped;   // what the value lies in where it had escapes; otherwise it lies in the text
};

enum DictLL_Status {
  DICTLL_ERROR,  // a read error, which errno tells
  DICTLL_EOF,
  DICTLL_LINE,
};

// Reads the next line, of whatever length.
DictLL_Status DictLL_ReadLine(FILE *stream, DictLL_Line *line);
// Makes a line of a text of `size` bytes, with a NUL behind them, that it takes over. The program stops when
// memory is out.
DictLL_Line DictLL_UnmarshalLine(OwnedString text, size_t size);
// Appends a key line with its line feed. The value is quoted, and escaped where it must be.
//
// size  of the value in bytes
//
// Returns false when memory is out.
bool DictLL_MarshalLine(DynBuf *output, const char *name, const void *value, size_t size);

#endif
