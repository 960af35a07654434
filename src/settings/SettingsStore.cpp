#include "settings/SettingsStore.h"

#include <QSettings>

SettingsStore::SettingsStore()
    : m_settings(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope,
                                             QStringLiteral("Newsdredge"), QStringLiteral("Newsdredge!")))
{
}

SettingsStore::~SettingsStore() = default;

static QString keyOf(const QString &key)
{
    return QStringLiteral("Settings/") + key;
}

QString SettingsStore::get(const QString &key, const QString &defaultValue) const
{
    const QVariant v = m_settings->value(keyOf(key));
    if (!v.isValid())
        return defaultValue;
    return v.toString();
}

void SettingsStore::save(const QString &key, const QString &value)
{
    if (m_readOnly)
        return;
    m_settings->setValue(keyOf(key), value);
}

bool SettingsStore::contains(const QString &key) const
{
    return m_settings->contains(keyOf(key));
}

void SettingsStore::sync()
{
    if (!m_readOnly)
        m_settings->sync();
}

int SettingsStore::getInt(const QString &key, int defaultValue) const
{
    bool ok = false;
    const QString s = get(key).trimmed();
    const int v = s.toInt(&ok);
    if (ok)
        return v;
    const double d = s.toDouble(&ok);
    return ok ? int(d) : defaultValue;
}

double SettingsStore::getDouble(const QString &key, double defaultValue) const
{
    bool ok = false;
    const double v = get(key).trimmed().toDouble(&ok);
    return ok ? v : defaultValue;
}

bool SettingsStore::getBool(const QString &key, bool defaultValue) const
{
    const QString s = get(key).trimmed();
    if (s.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
        return true;
    if (s.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0)
        return false;
    bool ok = false;
    const int v = s.toInt(&ok);
    return ok ? v != 0 : defaultValue;
}

QString SettingsStore::fileName() const
{
    return m_settings->fileName();
}
