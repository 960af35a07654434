// Server passwords in the desktop's secret service (through Qt Keychain), where one runs. The
// server list file then keeps the user name only; without a secret service (or with
// NEWSDREDGE_NO_KEYCHAIN set) the passwords stay in the owner-only file as before.
#pragma once

#include <QString>

namespace nd::secrets {

// Whether a secret service answers; asked once per run.
bool available();
// Keeps password for user on server in the secret service; true when it is held there now.
bool storePassword(const QString &server, const QString &user, const QString &password);
// The password kept for user on server; *found false (and "") when there is none.
QString readPassword(const QString &server, const QString &user, bool *found);

} // namespace nd::secrets
