#pragma once
#include "app/Commands.h"

#include <QList>
#include <span>

class Shell;

// Keeps commands off for the length of a run whose lists or session they would pull away, and
// gives each back the state it had when the hold began. Connect comes back as it was; a command
// that needs a session stays off when the run ended without one (a closing disconnect switched
// it off). hold() may be called again while held (after a listing switched the commands back
// on): it switches them off once more and keeps the states first saved.
class CommandHold {
public:
    void hold(Shell &sh, std::span<const nd::Cmd> commands);
    void release(Shell &sh, bool connected);
    bool held() const { return m_held; }

private:
    bool m_held = false;
    QList<std::pair<nd::Cmd, bool>> m_saved;
};
