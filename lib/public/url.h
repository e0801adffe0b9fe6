// Addresses of the product's web pages, by number.
//
// Each number has a row that says where it leads, which is itself until URL_SetRedirect, and which of three
// values, the appends, may go with it.
#ifndef OST_PUBLIC_URL_H
#define OST_PUBLIC_URL_H

// The slots of the appends: the log file's name, the product's version, the user's language.
enum : unsigned { URL_APPEND_LOG = 0, URL_APPEND_VERSION = 1, URL_APPEND_LANGUAGE = 2 };

// Sets the value of an append for the rest of the process; keeps a copy.
//
// slot   one of the above; another stops the program
// value  null for none
void URL_SetAppend(unsigned slot, const char *value);

// The address for `id`, a new string (free), or null when there is no such row.
//
// withAppends  whether the appends of the row that have a value go with it. What their encoded form has
//              beyond 1023 bytes is cut, never within a byte's code
char *URL_Get(int id, bool withAppends);

// Lets all rows of `id` lead to `target`. A target of 0 and an unknown id are warned of and change nothing.
void URL_SetRedirect(int id, int target);

// Forgets the appends and the redirects.
void URL_Exit();

#endif
