#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <cstdint>
#include <memory>
#include <optional>

namespace norrow {

// Every setting the app and norrowctl read or write. Their built-in values (what a key
// reads as while the user never set it) are in one table in Settings.cpp.
namespace SettingKey {
inline constexpr char soundStyle[] = "soundStyle";
inline constexpr char rulesEnabled[] = "rule.enabled";
inline constexpr char minimumDuration[] = "rule.minimumDuration";
inline constexpr char onlyIfAway[] = "rule.onlyIfAway";
inline constexpr char mutedProjects[] = "rule.mutedProjects";
inline constexpr char answerFromBanners[] = "rule.answerFromBanners";
inline constexpr char hasSeenMenu[] = "hasSeenMenu";
inline constexpr char listenerPort[] = "listenerPort";
inline constexpr char bridgeTokenFallback[] = "bridgeTokenFallback";
inline constexpr char claudeFolderOverride[] = "claudeFolderOverride";
inline constexpr char lastBackupPath[] = "lastBackupPath";
} // namespace SettingKey

// The user's settings ("qelvane"/"Norrow"). A key the user never set reads as its built-in
// value, which is never written.
class Settings {
public:
    Settings();
    // A store kept in one INI file, for tools and tests that must not touch the real one.
    explicit Settings(const QString& iniFile);

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
    // Makes the store's file readable by its owner only (0600, in a 0700 folder), creating
    // it empty when missing so that every later write keeps that mode: for when it is to
    // hold a secret. Failures are logged.
    void restrictToOwner();

    // The value a key has while the user never set it; invalid for keys without one.
    static QVariant builtIn(const QString& key);

private:
    std::unique_ptr<QSettings> settings_;
};

} // namespace norrow
