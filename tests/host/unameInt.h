/* Where every process of a host finds its answer to uname. */
#ifndef OST_TESTS_HOST_UNAMEINT_H
#define OST_TESTS_HOST_UNAMEINT_H

#ifdef __cplusplus
extern "C" {
#endif

/* A file of NUL-terminated fields, each a letter that says which ('s', 'r', 'v', 'm') and then its text. That
 * whoever writes it takes the name from here makes the linker take our uname before any other. */
__attribute__((visibility("hidden"))) extern const char testhost_uname_file[];

#ifdef __cplusplus
}
#endif

#endif
