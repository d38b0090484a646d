#include "app/shared/Settings.h"

#include "core/Files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace norrow {
namespace {

// The built-in values; keys not listed here read as unset until the user sets them.
const std::array<std::pair<const char*, QVariant>, 6> builtIns{{
    {SettingKey::soundStyle, QStringLiteral("voice")},
    {SettingKey::rulesEnabled, true},
    {SettingKey::minimumDuration, 20.0},
    {SettingKey::onlyIfAway, true},
    {SettingKey::answerFromBanners, true},
    {SettingKey::hasSeenMenu, false},
}};

} // namespace

QVariant Settings::builtIn(const QString& key) {
    for (const auto& [name, value] : builtIns)
        if (key == QLatin1String(name)) return value;
    return {};
}

Settings::Settings() : settings_(std::make_unique<QSettings>("qelvane", "Norrow")) {}

Settings::Settings(const QString& iniFile)
    : settings_(std::make_unique<QSettings>(iniFile, QSettings::IniFormat)) {}

QVariant Settings::value(const QString& key) const {
    const QVariant stored = settings_->value(key);
    if (stored.isValid()) return stored;
    return builtIn(key);
}

std::optional<QString> Settings::string(const QString& key) const {
    const QVariant v = value(key);
    if (!v.isValid() || v.typeId() == QMetaType::QStringList ||
        v.typeId() == QMetaType::QVariantList)
        return std::nullopt;
    return v.toString();
}

std::int64_t Settings::integer(const QString& key) const {
    bool ok = false;
    const qlonglong n = value(key).toLongLong(&ok);
    if (ok) return n;
    const double d = value(key).toDouble(&ok);
    return ok ? static_cast<std::int64_t>(d) : 0;
}

bool Settings::boolean(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().toLower();
        return s == "true" || s == "yes" || s.toLongLong() != 0;
    }
    return v.toBool();
}

double Settings::real(const QString& key) const {
    bool ok = false;
    const double d = value(key).toDouble(&ok);
    return ok ? d : 0.0;
}

QStringList Settings::stringList(const QString& key) const {
    const QVariant v = value(key);
    if (v.typeId() == QMetaType::QStringList || v.typeId() == QMetaType::QVariantList)
        return v.toStringList();
    // A one-element list reads back from an INI file as a plain string.
    if (v.typeId() == QMetaType::QString) return {v.toString()};
    return {};
}

void Settings::set(const QString& key, const QVariant& value) {
    settings_->setValue(key, value);
}

void Settings::remove(const QString& key) {
    settings_->remove(key);
}

void Settings::sync() {
    settings_->sync();
}

void Settings::restrictToOwner() {
#if defined(__APPLE__)
    // The system's preferences daemon writes that file and chooses its mode.
    if (settings_->format() == QSettings::NativeFormat) return;
#endif
    const std::filesystem::path file = settings_->fileName().toStdString();
    if (const auto failure = files::makePrivateFolder(file.parent_path())) {
        qWarning("Norrow: could not make the folder %s private: %s", failure->path.c_str(),
                 std::strerror(failure->error));
        return;
    }
    // Rewrites replace the file with one of the same mode.
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0 || ::fchmod(fd, 0600) != 0)
        qWarning("Norrow: could not make %s private: %s", file.c_str(), std::strerror(errno));
    if (fd >= 0) ::close(fd);
}

} // namespace norrow
