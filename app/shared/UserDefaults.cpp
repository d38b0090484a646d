#include "app/shared/UserDefaults.h"

namespace norrow {

UserDefaults::UserDefaults() : settings_(std::make_unique<QSettings>("qelvane", "Norrow")) {}

UserDefaults::UserDefaults(const QString& iniFile)
    : settings_(std::make_unique<QSettings>(iniFile, QSettings::IniFormat)) {}

void UserDefaults::registerDefaults(const QVariantMap& defaults) {
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        registered_.insert(it.key(), it.value());
}

QVariant UserDefaults::value(const QString& key) const {
    const QVariant stored = settings_->value(key);
    if (stored.isValid()) return stored;
    return registered_.value(key);
}

std::optional<QString> UserDefaults::string(const QString& key) const {
    const QVariant v = value(key);
    if (!v.isValid() || v.typeId() == QMetaType::QStringList ||
        v.typeId() == QMetaType::QVariantList)
        return std::nullopt;
    return v.toString();
}

std::int64_t UserDefaults::integer(const QString& key) const {
    bool ok = false;
    const qlonglong n = value(key).toLongLong(&ok);
    if (ok) return n;
    const double d = value(key).toDouble(&ok);
    return ok ? static_cast<std::int64_t>(d) : 0;
}

bool UserDefaults::boolean(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().toLower();
        return s == "true" || s == "yes" || s.toLongLong() != 0;
    }
    return v.toBool();
}

double UserDefaults::real(const QString& key) const {
    bool ok = false;
    const double d = value(key).toDouble(&ok);
    return ok ? d : 0.0;
}

QStringList UserDefaults::stringList(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QStringList || v.typeId() == QMetaType::QVariantList)
        return v.toStringList();
    // A one-element list reads back from an INI file as a plain string.
    if (v.typeId() == QMetaType::QString) return {v.toString()};
    return {};
}

void UserDefaults::set(const QString& key, const QVariant& value) {
    settings_->setValue(key, value);
}

void UserDefaults::remove(const QString& key) {
    settings_->remove(key);
}

void UserDefaults::sync() {
    settings_->sync();
}

} // namespace norrow
