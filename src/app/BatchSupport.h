// Pieces of a batch run that need no window: what may reach the terminal, where the password
// comes from, and the exit status after a termination signal. QtCore only.
#pragma once

#include <QString>

namespace nd::batch {

// A line on standard output or standard error, with every control character that came from a
// server shown escaped (cells stay separated by TAB on standard output). Nothing can cut it
// short, NUL included.
void writeOut(const QString &line);
void writeErr(const QString &line);

// Where the password of a batch run comes from. fromCommandLine is what followed --password
// (empty when it was not given): "-" reads one line from standard input, any other value is
// taken as it is but prints a warning (other users can read a command line) and is blanked in
// the process's command line at once (hidePasswordArgument); without --password, the environment variable NEWSDREDGE_PASSWORD is used when set.
// False with *error set when standard input gave nothing.
bool resolvePassword(const QString &fromCommandLine, bool givenOnCommandLine, QString *password,
                     QString *error);

// Overwrites the value after --password in the process's own command line (what other users see
// in ps or /proc/PID/cmdline) with '*'. resolvePassword does it for a password given there.
void hidePasswordArgument();

// Remembers SIGTERM and SIGINT (after onTerminationSignal, whose handling goes on as before).
void recordTerminationSignals();
// The signal that ended the run, 0 when none came.
int terminationSignal();
// status, or 128 + the signal when a termination signal ended the run (a run cut short never
// ends with 0), with a line on standard error saying so.
int exitStatus(int status);

} // namespace nd::batch
