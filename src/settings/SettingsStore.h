#pragma once
#include <QString>
#include <memory>

class QSettings;

// The per-user settings store: text values under application "Newsdredge!", section "Settings",
// kept in an INI file under the user's configuration directory. Keys are used exactly as named.
class SettingsStore {
public:
    SettingsStore();
    ~SettingsStore();

    QString get(const QString &key, const QString &defaultValue = QString()) const;
    void save(const QString &key, const QString &value);
    bool contains(const QString &key) const;
    void sync();

    // Conversions with a fallback when the stored text is not a number.
    int getInt(const QString &key, int defaultValue) const;
    double getDouble(const QString &key, double defaultValue) const;
    bool getBool(const QString &key, bool defaultValue) const;   // "1"/"0", "True"/"False"
    void saveInt(const QString &key, qint64 value) { save(key, QString::number(value)); }
    void saveBool(const QString &key, bool value) { save(key, value ? QStringLiteral("True") : QStringLiteral("False")); }

    // Batch runs read the user's settings but never write them back.
    void setReadOnly(bool ro) { m_readOnly = ro; }
    bool readOnly() const { return m_readOnly; }

    QString fileName() const;

private:
    std::unique_ptr<QSettings> m_settings;
    bool m_readOnly = false;
};
