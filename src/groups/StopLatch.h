#pragma once
#include "app/Shell.h"

#include <functional>
#include <memory>

// Remembers a Stop for a run that spans several sessions. A disconnect clears StopRequested,
// so a run that connects server after server would otherwise miss a Stop pressed while one of
// its connects or disconnects waited. Stop and closing the window both abort the running
// transaction; the latch listens there for as long as it lives.
class StopLatch {
public:
    explicit StopLatch(Shell &shell) : sh(shell), m_previous(shell.abortTransaction), m_flag(std::make_shared<bool>(false))
    {
        shell.abortTransaction = [previous = m_previous, flag = m_flag] {
            *flag = true;
            if (previous)
                previous();
        };
    }
    ~StopLatch() { sh.abortTransaction = m_previous; }
    StopLatch(const StopLatch &) = delete;
    StopLatch &operator=(const StopLatch &) = delete;

    bool stopped() const { return *m_flag || sh.S.StopRequested; }

private:
    Shell &sh;
    std::function<void()> m_previous;
    std::shared_ptr<bool> m_flag;
};
