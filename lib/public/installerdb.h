// The installer's journal: the settings that it chose and the files that it put on the system.
//
// InstallerDB_Init replays the journal into two tables; every change appends a line, so that an uninstaller
// can take back what was added. Every operation but InstallerDB_Init and InstallerDB_DeInit asserts that the
// journal is open.
#ifndef OST_PUBLIC_INSTALLERDB_H
#define OST_PUBLIC_INSTALLERDB_H

// Flag of InstallerDB_AddFile and InstallerDB_CopyFile: record the file's modification time.
enum { INSTALLERDB_TIMESTAMP = 1 };
enum { INSTALLERDB_SCRIPT_START = 0, INSTALLERDB_SCRIPT_STOP = 1 };

// Opens and replays "<directory>/locations". With `readOnly` nothing can be written afterwards. Returns false
// when the file can't be opened or is empty, or lacks an answer that every installation has.
bool InstallerDB_Init(const char *directory, bool readOnly);
void InstallerDB_DeInit();
bool InstallerDB_IsInitialized();

// Borrowed, until the answer is removed; null when there is none.
const char *InstallerDB_GetAnswer(const char *key);
const char *InstallerDB_GetBinDir();
const char *InstallerDB_GetLibDir();
const char *InstallerDB_GetInitScriptsDir();
bool InstallerDB_HasRequiredAnswers();
// Takes both strings over, from malloc.
bool InstallerDB_SetAnswer(char *key, char *value);
bool InstallerDB_RemoveAnswer(const char *key);

bool InstallerDB_IsFileKnown(const char *path);
bool InstallerDB_AddFile(const char *path, unsigned flags);
bool InstallerDB_RemoveFile(const char *path);
bool InstallerDB_RemoveInstalledFile(const char *path);
// Makes a link at `linkPath`, symbolic or hard, and records it without a time.
bool InstallerDB_Link(bool symbolic, const char *target, const char *linkPath);
// Copies over `destination`, mode 0644, and records it.
bool InstallerDB_CopyFile(const char *source, const char *destination, unsigned flags);
// Copies to the first free of "<path>.old.0" to "<path>.old.99".
bool InstallerDB_BackupFile(const char *path);
bool InstallerDB_RunInitScript(const char *script, int action);
bool InstallerDB_IsDspInstall();

#endif
