// Addresses of the product's web pages, by number.
//
// Each number has a row that says where it leads, which is itself until URL_SetRedirect, and which of three
// values, the appends, may go with it: 0 the product, 1 its version, 2 the user's language.
#ifndef OST_PUBLIC_URL_H
#define OST_PUBLIC_URL_H

// Sets the value of an append for the rest of the process; keeps a copy.
//
// slot   0 to 2; another stops the program
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
