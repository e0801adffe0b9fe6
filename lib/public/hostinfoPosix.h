// Facts of the host.
#ifndef OST_PUBLIC_HOSTINFOPOSIX_H
#define OST_PUBLIC_HOSTINFOPOSIX_H

// The host's canonical name, or its node name when it has no other, as a new string (free). Null when it has
// no name.
char *Hostinfo_HostName();

#endif
