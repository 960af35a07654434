// Text that came from a server, made safe to show: on a terminal, in a status panel, in a list.
// Control characters (ESC, BEL, NUL, DEL, the C1 range) and the invisible direction overrides
// are written out as escapes, so a server can neither drive the terminal nor cut or reorder
// what is shown. Everything else, any script included, stays as it is.
#pragma once

#include <QString>
#include <QStringView>

namespace nd {

enum class SafeTextTabs { Escape, Keep };

// "\x1B" for ESC and the other C0/C1 controls and DEL, "\u202E" and the like for direction
// controls; a backslash stays a backslash. With Keep, TAB passes (it separates cells).
QString safeText(QStringView text, SafeTextTabs tabs = SafeTextTabs::Escape);
// Whether safeText would change text.
bool needsSafeText(QStringView text, SafeTextTabs tabs = SafeTextTabs::Escape);

} // namespace nd
