#include "app/CommandHold.h"

#include "app/Shell.h"

void CommandHold::hold(Shell &sh, std::span<const nd::Cmd> commands)
{
    if (!m_held) {
        m_saved.clear();
        for (nd::Cmd c : commands)
            m_saved.append({c, sh.menuState(c)});
        m_held = true;
    }
    for (nd::Cmd c : commands)
        sh.SetMenuState(c, false);
}

void CommandHold::release(Shell &sh, bool connected)
{
    if (!m_held)
        return;
    m_held = false;
    for (const auto &[c, was] : std::as_const(m_saved))
        sh.SetMenuState(c, c == nd::Cmd::Connect ? was : was && connected);
}
