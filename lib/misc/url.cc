#include "url.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "log.h"
#include "owned.h"
#include "panicUser.h"
#include "str.h"
#include "util_misc.h"

namespace {

// What the product settles: its pages' address, how many there are, and what their appends are called.
constexpr char kEndpoint[] = "https://www.ostrel.example";
constexpr size_t kRowCount = 99;
constexpr std::array kAppendNames = {"log", "version", "lang"};

constexpr unsigned kAllAppends = (1U << kAppendNames.size()) - 1;
// From here on the pages are the maker's and no product's, and come in a language alone.
constexpr int kFirstOfMaker = 91;
constexpr unsigned kLanguage = 1U << 2;

struct UrlRow {
  int id;
  unsigned appends;  // bit n: the append of slot n applies
  int target;
};

constexpr std::array<UrlRow, kRowCount> MakeRows() {
  std::array<UrlRow, kRowCount> rows{};
  for (int id = 1; id <= static_cast<int>(kRowCount); id++) {
    rows[static_cast<size_t>(id - 1)] = {id, id < kFirstOfMaker ? kAllAppends : kLanguage, id};
  }
  return rows;
}

// Lives from the start of the process; URL_Exit puts it back as it was.
struct {
  std::array<UrlRow, kRowCount> rows = MakeRows();
  std::array<char *, kAppendNames.size()> appends = {};
} url;

using Encoded = std::array<char, 1024>;

bool IsPlain(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

Encoded PercentEncode(const char *text) {
  Encoded encoded;
  size_t size = 0;
  for (; *text != '\0'; text++) {
    char code[4] = {*text, '\0'};
    if (!IsPlain(*text)) {
      Str_Snprintf(code, sizeof code, "%%%02x", static_cast<unsigned char>(*text));
    }
    const size_t length = IsPlain(*text) ? 1 : 3;
    if (size + length >= encoded.size()) {
      break;
    }
    std::copy_n(code, length, encoded.begin() + static_cast<ptrdiff_t>(size));
    size += length;
  }
  encoded[size] = '\0';
  return encoded;
}

OwnedString WithAppend(const OwnedString &address, const char *name, const char *value) {
  // Numbered arguments are our print's own, and no part of C++.
  return OwnedString(__extension__ Str_SafeAsprintf(nullptr, "%1$s&%2$s=%3$s", address.get(),
                                                    PercentEncode(name).data(), PercentEncode(value).data()));
}

}  // namespace

void URL_SetAppend(unsigned slot, const char *value) {
  ASSERT(slot < url.appends.size());
  free(url.appends[slot]);
  url.appends[slot] = Util_SafeStrdup(value);
}

char *URL_Get(int id, bool withAppends) {
  const auto *row =
      std::find_if(url.rows.begin(), url.rows.end(), [=](const UrlRow &r) { return r.id == id; });
  if (row == url.rows.end()) {
    return nullptr;
  }
  OwnedString address(Str_SafeAsprintf(nullptr, "%s/info?id=%d", kEndpoint, row->target));
  const unsigned appends = withAppends ? row->appends : 0;
  for (size_t slot = 0; slot < url.appends.size(); slot++) {
    if ((appends & 1U << slot) != 0 && url.appends[slot] != nullptr) {
      address = WithAppend(address, kAppendNames[slot], url.appends[slot]);
    }
  }
  return address.release();
}

void URL_SetRedirect(int id, int target) {
  if (target == 0) {
    Warning("%s: Invalid target ID %d.\n", "URL_SetRedirect", target);
    return;
  }
  bool known = false;
  for (UrlRow &row : url.rows) {
    if (row.id == id) {
      row.target = target;
      known = true;
    }
  }
  if (!known) {
    Warning("%s: ID %d doesn't exist.\n", "URL_SetRedirect", id);
  }
}

void URL_Exit() {
  for (char *&append : url.appends) {
    free(append);
    append = nullptr;
  }
  url.rows = MakeRows();
}
