#pragma once
#include <QString>

namespace nd {

// The application directory: caches, lists, logs and temporary files.
// NEWSDREDGE_HOME overrides the per-user data location. Created on first use.
QString appDir();
// appDir() + "/" + name
QString appFile(const QString &name);
// appDir() + "/Cache"
QString cacheDir();

// Deletes leftover temporary files: every "*.tmp" in the application directory, and in the
// download directory only the program's own names (six digits 100000..355995 + ".tmp" and
// "~image2.tmp"), never other files of the user.
void cleanAppTempFiles();
void cleanDownloadTempFiles(const QString &destDir);
bool isOwnDownloadTempName(const QString &fileName);

// Ensures a directory text ends with "/".
QString withTrailingSlash(const QString &dir);

} // namespace nd
