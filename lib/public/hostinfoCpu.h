// The host's processors and its load.
#ifndef OST_PUBLIC_HOSTINFOCPU_H
#define OST_PUBLIC_HOSTINFOCPU_H

// How many processors the host has, or -1 when the system doesn't tell. A count is kept from then on.
int Hostinfo_NumCPUs();
// Whether there is more than one; false when the system doesn't tell.
bool Hostinfo_IsSMP();

// What /proc/cpuinfo says of a processor.
//
// cpu  counted from 0; the first for a negative number, the last when there are fewer
// key  looked for anywhere before a colon, so "model" finds the lines of "model name" too and counts them
//
// Returns a new string (free), without blanks at its ends. Null when no line has the key and, with a warning,
// when the file can't be opened.
char *HostinfoGetCpuInfo(int cpu, const char *key);
// The processor's name, in the same way.
char *Hostinfo_GetCpuModelName(int cpu);
// The processor's frequency.
//
// mhz  gets the megahertz, rounded; left alone when the value is no such number
//
// Returns false only when there is no value.
bool Hostinfo_GetCpuMHz(int cpu, unsigned *mhz);

// The load of the last 1, 5 and 15 minutes; each may be null. Returns false, with all left alone, when the
// system doesn't tell; the process's first failure is logged.
bool Hostinfo_GetLoadAverage(double *one, double *five, double *fifteen);
// A hundred times the load of the last minute, as a whole number. Fails in the same way.
bool Hostinfo_GetLoadAverageInt(unsigned *load);
// Logs the three.
void Hostinfo_LogLoadAverage();

#endif
