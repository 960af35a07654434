#pragma once
#include <QStringList>

namespace nd {

// newsdredge --batch --server NAME [--user ID [--password PW|-]] [--newest N] ACTION
//   ACTION: --groups | --list GROUP | --download-all GROUP --dest DIR
// Drives the program's own procedures on a window that is never shown. Status texts and message
// boxes go to standard error; results go to standard output. Returns the process exit status:
// 0 when the run finished, 2 for a wrong command line, 3 when connecting failed, 4 when listing
// failed, 5 when a download transaction failed; 128 + N when signal N (SIGTERM, SIGINT) ended it.
int runBatch(const QStringList &arguments);

} // namespace nd
