// The steps of the search for the host's names.
#ifndef OST_MISC_HOSTINFOOSINT_H
#define OST_MISC_HOSTINFOOSINT_H

#include <cstddef>

// The bytes that a distribution's text and its short name are held in.
inline constexpr size_t kHostinfoDistroSize = 255;

// Reads the kernel's version, unless it is there already.
void HostinfoOSVersionInit();

// Searches both names and keeps them, unless they are there already. Returns false with a warning when they
// can't be found; then nothing is kept.
bool HostinfoOSData();

// Reads a distribution's text from one of its release files: the values of the file's LSB keys, each with a
// blank behind it, or else all of the file but its last byte.
//
// distro  gets the text; left alone, or partly filled, on failure
//
// Returns false with a warning when the file can't be read, is empty or too long.
bool HostinfoReadDistroFile(const char *path, char (&distro)[kHostinfoDistroSize]);

// Gives the short name that stands for a distribution's text.
//
// shortName  left alone when no name stands for the text or, with a warning, when memory is out
void HostinfoGetOSShortName(const char *distro, char (&shortName)[kHostinfoDistroSize]);

#endif
