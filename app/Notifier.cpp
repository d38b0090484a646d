#include "app/Notifier.h"

#include <QtGlobal>
#include <array>
#include <utility>

namespace norrow {
namespace {

using Style = Notifier::SoundStyle;

constexpr std::array<std::pair<Style, std::string_view>, 3> rawValues{{
    {Style::bell, "bell"},
    {Style::voice, "voice"},
    {Style::silent, "silent"},
}};

constexpr std::string_view bell = "Norrow";
constexpr std::string_view done = "NorrowDone";
constexpr std::string_view needsYou = "NorrowNeedsYou";
// The cache's key for the fallback: no sound file can have this name.
constexpr std::string_view fallbackKey = "_fallback";

} // namespace

std::string_view rawValue(Notifier::SoundStyle style) {
    for (const auto& [known, raw] : rawValues)
        if (known == style) return raw;
    return {};
}

std::optional<Notifier::SoundStyle> soundStyle(std::string_view raw) {
    for (const auto& [style, known] : rawValues)
        if (known == raw) return style;
    return std::nullopt;
}

std::optional<std::string_view> sounds::forAlert(Notifier::SoundStyle style, SummaryKind kind) {
    switch (style) {
    case Style::bell:
        return bell;
    case Style::voice:
        return kind == SummaryKind::done ? done : needsYou;
    case Style::silent:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string_view> sounds::forPreview(Notifier::SoundStyle style) {
    return forAlert(style, SummaryKind::done);
}

Notifier::Notifier(Settings& settings, SoundPlayer& player, std::filesystem::path folder)
    : settings_(settings), player_(player), folder_(std::move(folder)) {}

Notifier::SoundStyle Notifier::style() const {
    const auto stored = settings_.string(SettingKey::soundStyle);
    if (!stored) return Style::voice;
    return soundStyle(stored->toStdString()).value_or(Style::voice);
}

void Notifier::setStyle(SoundStyle style) {
    settings_.set(SettingKey::soundStyle, QString::fromUtf8(rawValue(style)));
}

void Notifier::play(SummaryKind kind) {
    playNamed(sounds::forAlert(style(), kind));
}

void Notifier::preview(SoundStyle style) {
    playNamed(sounds::forPreview(style));
}

std::shared_ptr<SoundPlayer::Sound> Notifier::sound(const std::string& name) {
    if (const auto cached = cache_.find(name); cached != cache_.end()) return cached->second;
    auto loaded = player_.load(folder_ / (name + "." + std::string(player_.fileExtension())));
    if (loaded) cache_.emplace(name, loaded);
    return loaded;
}

std::shared_ptr<SoundPlayer::Sound> Notifier::fallback() {
    if (const auto cached = cache_.find(fallbackKey); cached != cache_.end()) return cached->second;
    auto system = player_.systemSound();
    if (system) cache_.emplace(fallbackKey, system);
    return system;
}

void Notifier::playNamed(std::optional<std::string_view> name) {
    if (!name) return;
    auto chosen = sound(std::string(*name));
    if (!chosen) chosen = fallback();
    if (!chosen) return;
    const auto error = chosen->restart();
    // A machine without sound fails on every alert; saying so once is enough.
    if (!error || warned_) return;
    warned_ = true;
    qWarning("Norrow: could not play the alert sound: %s", error->reason.c_str());
}

} // namespace norrow
