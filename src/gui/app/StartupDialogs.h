#pragma once

class QWidget;
class SettingsStore;

namespace nd {

// The splash window: shown modally, closes itself after a moment.
void showSplash(QWidget *parent);
// Quick help; at start-up it offers to stop showing itself and then writes "QHShow".
void showQuickHelp(QWidget *parent, SettingsStore &store, bool startup);
void showAboutBox(QWidget *parent);

} // namespace nd
