#pragma once
#include <functional>

class QObject;

namespace nd {

// Runs handler on the event loop of context's thread when the process gets SIGTERM or SIGINT
// (the signal handler only writes to a socket pair; nothing else happens inside it).
void onTerminationSignal(QObject *context, std::function<void()> handler);

} // namespace nd
