// Base64: what is encoded decodes to itself, GLib encodes it the same way, and any text decodes to what GLib
// makes of it up to the first NUL or "=", or is refused.

#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "base64.h"

namespace {

void Require(bool holds) {
  if (!holds) {
    abort();
  }
}

std::string Decode(const char *text, bool *decoded) {
  uint8_t *data = nullptr;
  size_t size = 0;
  *decoded = Base64_EasyDecode(text, &data, &size);
  Require(*decoded == (data != nullptr));
  std::string result(reinterpret_cast<char *>(data), size);
  free(data);
  return result;
}

void EncodeAndBack(const std::string &input) {
  char *text = nullptr;
  Require(Base64_EasyEncode(reinterpret_cast<const uint8_t *>(input.data()), input.size(), &text));
  Require(strlen(text) == Base64_EncodedLength(input.size()));
  Require(Base64_ValidEncoding(text, strlen(text)));
  Require(Base64_DecodedLength(text, strlen(text)) == input.size());
  char *peer = g_base64_encode(reinterpret_cast<const guchar *>(input.data()), input.size());
  Require(strcmp(text, peer) == 0);
  g_free(peer);
  bool decoded = false;
  Require(Decode(text, &decoded) == input && decoded);
  free(text);
}

void DecodeAsText(const std::string &input) {
  const std::string text = input.substr(0, input.find_first_of(std::string("=\0", 2)));
  bool decoded = false;
  const std::string data = Decode(input.c_str(), &decoded);
  Require(decoded ==
          (text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
                                  "\t\n\v\f\r ") == std::string::npos));
  if (!decoded) {
    return;
  }
  // GLib gives only whole groups, and a group's missing bytes with padding.
  gsize size = 0;
  const std::string padded = text + "===";
  guchar *peer = g_base64_decode(padded.c_str(), &size);
  Require(data.size() <= size && memcmp(data.data(), peer, data.size()) == 0);
  g_free(peer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  EncodeAndBack(input);
  DecodeAsText(input);
  return 0;
}
