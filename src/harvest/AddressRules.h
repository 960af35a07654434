#pragma once
#include <QString>
#include <QStringList>
#include <functional>

// The rules that take Web/FTP, e-mail and news-server addresses out of message texts and
// headers. No window, no network: the harvesting run feeds them and lists what they return.
namespace harvest {

struct WebSwitches {
    bool webSave = true;   // "WEBSave": scan on past an HTTP address
    bool ftpSave = true;   // "FTPSave": scan on past an FTP address
    bool saveHttp = true;  // "SaveHTTP": keep HTTP(S) addresses
    bool saveFtp = true;   // "SaveFTP": keep FTP addresses
};

// Walks one article text: every HTTP(S) address first, then the FTP ones. For each address that
// is not listed yet (alreadyListed) and that the switches keep, calls add(address); add returns
// false to end the scan of the text (its file could not be written).
void findWebAddresses(const QString &text, const WebSwitches &sw,
                      const std::function<bool(const QString &)> &alreadyListed,
                      const std::function<bool(const QString &)> &add);

// Whether a fetched article's text goes to the Web/FTP scan outside a scanning run: it names an
// HTTP(S) address and HTTP addresses are kept, or an FTP address and FTP addresses are kept.
bool worthScanning(const QString &text, bool saveHttp, bool saveFtp);

// Cuts an address at the first space, CR, vertical tab, LF, "<", ">", ")" and double quote, then
// trims it.
QString cutAddress(QString address);

// The line written to the harvested-links page for one address, HTML-escaped so that no address
// can break out of its link; ends with CR LF.
QByteArray linkLine(const QString &address);
// True when a line of the page already holds the address (as the page writes it).
bool pageHoldsAddress(const QByteArray &page, const QString &address);

// Reduces a From value to a bare address; empty when the address is rejected.
QString cleanEmailAddress(const QString &from);
// The address's place in the list: not empty, not starting with ".", and matching the search
// text (case-insensitive; an empty search matches everything).
bool emailWanted(const QString &address, const QString &searchText);

// The news-server names of one Path value: the pieces with a dot, with ".POSTED" and ".MISMATCH"
// removed, still holding a dot. In order, duplicates kept (the caller lists each once).
QStringList newsServersInPath(const QString &path);

// "????? ???    " + name: an unchecked server of the server list.
QString uncheckedServerItem(const QString &name);

} // namespace harvest
