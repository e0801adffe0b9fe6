// The installer's journal: the settings that it chose and the files that it put on the system.
//
// InstallerDB_Init replays the journal into two tables; every change appends a line, so that an uninstaller
// can take back what was added. Every operation on the tables asserts that the journal is open. One that
// writes returns false when the journal can't be written; the removals and InstallerDB_AddFile have changed
// the table by then.
#ifndef OST_PUBLIC_INSTALLERDB_H
#define OST_PUBLIC_INSTALLERDB_H

// Flag of InstallerDB_AddFile and InstallerDB_CopyFile: record the file's modification time.
enum { INSTALLERDB_TIMESTAMP = 1 };
enum { INSTALLERDB_SCRIPT_START = 0, INSTALLERDB_SCRIPT_STOP = 1 };

// Opens and replays "<directory>/locations". With `readOnly` nothing can be written afterwards. Returns false
// when the file can't be opened or is empty, or lacks an answer that every installation has.
bool InstallerDB_Init(const char *directory, bool readOnly);
// Forgets the journal and lets it go. Harmless when it isn't open.
void InstallerDB_DeInit();
bool InstallerDB_IsInitialized();

// Borrowed, until the answer is removed; null when there is none.
const char *InstallerDB_GetAnswer(const char *key);
const char *InstallerDB_GetBinDir();
const char *InstallerDB_GetLibDir();
const char *InstallerDB_GetInitScriptsDir();
// Whether all three directories are known.
bool InstallerDB_HasRequiredAnswers();
// Takes both strings over, from malloc, also when it fails. A key that the journal holds without a value
// stays as it is, and the result is false.
bool InstallerDB_SetAnswer(char *key, char *value);
// False, with nothing written, when the key isn't there.
bool InstallerDB_RemoveAnswer(const char *key);

bool InstallerDB_IsFileKnown(const char *path);
// Records a path, anew when it is known. False when its time is asked for and can't be had.
bool InstallerDB_AddFile(const char *path, unsigned flags);
// False, with nothing written, when the path isn't known.
bool InstallerDB_RemoveFile(const char *path);
// Deletes a file and its record. False for a path that isn't known, and for a file that doesn't exist or
// stays.
bool InstallerDB_RemoveInstalledFile(const char *path);
// Makes a link at `linkPath`, symbolic or hard, and records it without a time.
bool InstallerDB_Link(bool symbolic, const char *target, const char *linkPath);
// Copies over `destination`, mode 0644, and records it.
bool InstallerDB_CopyFile(const char *source, const char *destination, unsigned flags);
// Copies to the first free of "<path>.old.0" to "<path>.old.99". False when none is free or the copy fails.
bool InstallerDB_BackupFile(const char *path);
// Runs a service script of the product. Returns whether its status was 0; also true, with nothing run, when
// OSTREL_SKIP_SERVICES is set, be it empty.
bool InstallerDB_RunInitScript(const char *script, int action);
bool InstallerDB_IsDspInstall();

#endif
