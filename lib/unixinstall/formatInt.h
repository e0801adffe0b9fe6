// The engine's strings: formatted ones, and GLib's.
#ifndef OST_UNIXINSTALL_FORMATINT_H
#define OST_UNIXINSTALL_FORMATINT_H

#include <glib.h>

#include <cstdarg>

#include "owned.h"
#include "panicUser.h"
#include "str.h"

// A string from GLib.
using OwnedText = std::unique_ptr<char, Releaser<g_free>>;

// Prints into a new string. Stops the program when memory is out.
__attribute__((format(printf, 1, 2))) inline OwnedString EngineFormat(const char *format, ...) {
  va_list args;
  va_start(args, format);
  OwnedString text(Str_Vasprintf(nullptr, format, args));
  va_end(args);
  ASSERT_MEM_ALLOC(text);
  return text;
}

#endif
