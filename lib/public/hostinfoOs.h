// The operating system the program runs on: the kernel's version as numbers, a full name for people and a
// short one for machines.
//
//   char fullName[192];   // "Linux 2.6.18-92.el5 Red Hat Enterprise Linux Server release 5.2 (Tikanga)"
//   char shortName[64];   // "rhel5-64"
//   if (Hostinfo_GetOSName(sizeof fullName, sizeof shortName, fullName, shortName)) ...
#ifndef OST_PUBLIC_HOSTINFOOS_H
#define OST_PUBLIC_HOSTINFOOS_H

// Gives both names of the host. They are searched for until a search succeeds, and kept from then on.
//
// fullNameSize   bytes of `fullName`; 192 hold every name
// shortNameSize  bytes of `shortName`; 64 hold every name
//
// Returns false, with the buffers left alone and a warning in the log, when the names can't be found. A
// buffer that is too small stops the program. Safe in every thread: all get the same names.
bool Hostinfo_GetOSName(unsigned fullNameSize, unsigned shortNameSize, char *fullName, char *shortName);

// Both read the kernel's release at the first call. A release that can't be read, or doesn't begin with a
// number, stops the program. Safe in every thread.
//
// A number of the release: 0 the major, 1 the minor, 2 the patch, 3 the one behind a point that follows the
// third ("2.6.16.60-0.21" has 60); 0 where there is none, and for every other index.
int Hostinfo_OSVersion(unsigned index);
// The release itself, borrowed, lives for ever.
const char *Hostinfo_OSVersionString();

// 64 on an x86-64 kernel, 32 on any other, -1 when the system doesn't say.
int Hostinfo_GetSystemBitness();

#endif
