// The kernel module engine: all knowledge of kernels, module lists, compilers, headers and pre-built sets.
//
// One instance for the process, with process-wide state that lives from KernPrep_Init to KernPrep_DeInit.
// Functions answer with a boolean, null or a new string; the reason of a failure is in the log. Runs on the
// main thread.
#ifndef OST_PUBLIC_KPREP_H
#define OST_PUBLIC_KPREP_H

#include <glib.h>

#include <cstdint>
#include <cstdio>

// Identity and life cycle (kprep.cc)

// Learns the running kernel, makes the scratch directory and reads the module list. Call after
// InstallerDB_Init. Returns false, with the reason in the log, when the directories or the kernel's release
// are unknown, and without one when the scratch directory can't be made.
bool KernPrep_Init();
// Deletes the scratch directory and frees the state. May be called once after a successful or failed
// KernPrep_Init.
void KernPrep_DeInit();
// The running kernel's release, as a new string (free).
char *KernPrep_GetKernelRelease();
// Writes the block of properties that labels a set of modules built by hand for this kernel. Returns false
// when a write fails.
bool KernPrep_GeneratePropertyFile(FILE *stream);

// Module list (kprepModuleList.cc)

struct KernPrep_ModuleEntry {
  char *name;
  char *description;
  char *key;  // empty when the list gives none
  bool required;
  GList *dependencies;  // of owned strings
};

// Reads a module list file. Returns a new list of KernPrep_ModuleEntry in the file's order
// (KernPrep_FreeModuleList); null, with the reason in the log, when there is none.
GList *KernPrep_ReadModuleList(const char *path);
void KernPrep_FreeModuleList(GList *list);
// Those wanted modules of the list that the module tools don't find: a new list of the same entries
// (g_list_free).
GList *KernPrep_GetUnsatisfiedModules(GList *list);
bool KernPrep_HasUnsatisfiedModules(GList *list);
// Full path of a program, borrowed from one process-wide buffer that the next successful search overwrites
// and a failed one leaves alone. Null when it isn't found, or for a null or empty name.
const char *KernPrep_FindInPath(const char *program);
// Whether the module tools find the module on disk.
bool KernPrep_ModuleIsInstalled(const char *module);

// Pre-built module sets (kprepPbm.cc)

enum KernPrep_PbmCategory {
  KERNPREP_PBM_DONT_USE = 0,
  KERNPREP_PBM_PERFECT = 1,
  KERNPREP_PBM_COMPATIBLE = 2
};

struct KernPrep_PbmSet {
  char *name;        // the set's directory
  char *utsRelease;  // as its properties give it
  bool modVersion;
  KernPrep_PbmSet *next;
  KernPrep_PbmSet *last;  // in the first record only
  KernPrep_PbmCategory category;
};

// Whether a set was selected for the running kernel and holds the module. Costs a scan and, for compatible
// sets, live trials on the kernel.
bool KernPrep_HasPrebuiltModule(const char *module);
// Installs the module from the selected set. The last two arguments go to KernPrep_InstallModule.
bool KernPrep_InstallPrebuiltModule(const char *module, const char *subdirectory, const char *installName);
// The sets below `root` that may be used, in the directory's order (KernPrep_FreePbmSets), or null.
KernPrep_PbmSet *KernPrep_ScanPbmSets(const char *root);
// The best set of the list for a kernel release, null meaning the running one. Borrowed from the list; null
// when none fits.
KernPrep_PbmSet *KernPrep_SelectPbmSet(const char *root, KernPrep_PbmSet *list, const char *kernelRelease);
// Loads and unloads a module of the set. 1 passed, 0 failed, -1 skipped. A copy that was loaded before stays
// unloaded.
int KernPrep_SmokeTest(const char *root, const KernPrep_PbmSet *set, const char *kernelRelease);
// The release without the part that changes with each vendor rebuild, as a new string (free).
char *KernPrep_MangleRelease(const char *release);
// -1, 0 or 1 by the numbers of the releases.
int KernPrep_CompareReleases(const char *first, const char *second);
// Borrowed from a process-wide buffer of 4096 bytes that the next call overwrites.
const char *KernPrep_GetPbmObjectPath(const char *root, const KernPrep_PbmSet *set, const char *module);
void KernPrep_FreePbmSets(KernPrep_PbmSet *list);

// Compilers (kprepCompiler.cc)

enum KernPrep_CompilerMatch {
  KERNPREP_COMPILER_UNKNOWN = 0,  // a version could not be learned
  KERNPREP_COMPILER_OTHER_MAJOR = 1,
  KERNPREP_COMPILER_MATCH = 2,
  KERNPREP_COMPILER_OTHER_MINOR = 3,
};

// Version text of the compiler that built the kernel, such as "4.1.2", as a new string (free); null when
// unknown.
char *KernPrep_GetKernelCompilerVersion();
// What a compiler says of itself, as a new string (free) or null. Waits for any child: no other may be
// running. Each call leaves two descriptors open for the life of the process.
char *KernPrep_GetCompilerVersion(const char *path);
// Reads the first two numbers of a version text, each cut to 8 bits. Returns false, with the reason in the
// log and both numbers left alone, when there are fewer.
bool KernPrep_ParseCompilerVersion(const char *text, uint8_t *major, uint8_t *minor);
// Reads "%u.%u.%u.%u" into four zeroed numbers. Returns whether three or four were read.
bool KernPrep_ParseVersion(const char *text, uint32_t parts[4]);
// How a compiler fits the kernel's: a KernPrep_CompilerMatch. Changes no state.
unsigned KernPrep_CompareCompiler(const char *path);
// The engine's own choice of a compiler, as a new string (free) or null. Remembers the chosen one's version.
char *KernPrep_FindCompiler();

// Headers (kprepHeaders.cc)

// The first default directory with the running kernel's headers, as a new string (free) or null.
char *KernPrep_FindHeaderDir();
// Whether the directory holds headers of the running kernel, as the preprocessor sees them.
bool KernPrep_ValidateHeaderDir(const char *directory);
// The value of a macro after including headers of a directory.
//
// headers  null-terminated array of names, as in #include <name>
//
// Returns a new string (free), or null. A macro that isn't defined gives its own name.
char *KernPrep_QueryMacro(const char *const *headers, const char *directory, const char *macro);
// Whether "<directory>/<relativePath>" exists.
bool KernPrep_HeaderExists(const char *directory, const char *relativePath);

// Building (kprepBuild.cc)

// Builds a module and what it depends on from source, and installs the module.
//
// compiler, headerDir         what the user accepted; given to the makefile as they are
// subdirectory, installName   go to KernPrep_InstallModule; may be null
//
// Returns whether the module was installed; true as well, with nothing installed, when a source can't be
// unpacked after this call has compiled another one. A module is built once between KernPrep_Init and
// KernPrep_DeInit.
bool KernPrep_BuildModule(const char *module, const char *compiler, const char *headerDir,
                          const char *subdirectory, const char *installName);
// The order in which a module and its dependencies are built, module last.
//
// list   the module list; null gives just the module
// marks  a string-keyed table for the walk, empty at first; it borrows its keys from the list
//
// Returns a new list of new strings (KernPrep_FreeNameList), or null for a cycle or a name that stands twice.
GList *KernPrep_WalkDependencies(GList *list, const char *module, GHashTable *marks);
void KernPrep_FreeNameList(GList *list);

// Installing and loading (kprepInstall.cc)

// Copies an object to "/lib/modules/<release>/<subdirectory>/<installName>.o", with a link ending in ".ko",
// and notes both in the journal. "misc" stands for a null subdirectory and the module's name for a null
// installName. Runs depmod in every case.
bool KernPrep_InstallModule(const char *module, const char *objectPath, const char *subdirectory,
                            const char *installName);
// Runs insmod on what KernPrep_InstallModule put below "misc". Returns whether that succeeded.
bool KernPrep_LoadModule(const char *module);
// Runs rmmod, silently. Returns whether that succeeded.
bool KernPrep_UnloadModule(const char *module);

#endif
