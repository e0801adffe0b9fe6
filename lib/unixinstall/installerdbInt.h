// The marker that the journal is open and replayed, for the storage half of the installer database.
#ifndef OST_UNIXINSTALL_INSTALLERDBINT_H
#define OST_UNIXINSTALL_INSTALLERDBINT_H

void InstallerDBSetMarker();
void InstallerDBClearMarker();

#endif
