#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <cstdint>
#include <memory>
#include <optional>

namespace norrow {

// The user's settings ("qelvane"/"Norrow"), with an in-memory table of registered defaults
// that answers for keys the user never set and is never written.
class UserDefaults {
public:
    UserDefaults();
    // A store kept in one INI file, for tools and tests that must not touch the real one.
    explicit UserDefaults(const QString& iniFile);

    void registerDefaults(const QVariantMap& defaults);

    QVariant value(const QString& key) const;
    std::optional<QString> string(const QString& key) const;
    // 0 when unset or not a whole number.
    std::int64_t integer(const QString& key) const;
    bool boolean(const QString& key) const;
    double real(const QString& key) const;
    QStringList stringList(const QString& key) const;

    void set(const QString& key, const QVariant& value);
    void remove(const QString& key);
    void sync();

private:
    std::unique_ptr<QSettings> settings_;
    QVariantMap registered_;
};

} // namespace norrow
