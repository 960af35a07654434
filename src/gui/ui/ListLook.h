#pragma once
#include <QIcon>
#include <QString>

namespace nd::gui {

// How the lists are drawn: the icon of each item's icon key, and the colour and font of each
// marker ("1" bold green, "2" red, "4" blue). The main window installs it once.
void installListLook();

// The icon an item key stands for. A key is a list of theme icon names separated by "|", tried
// in order; "std:file" and "std:dirlink" are the style's file and linked-folder icons. A key
// none of whose names can be found gets the file icon; an empty key no icon.
QIcon iconForKey(const QString &key);

} // namespace nd::gui
