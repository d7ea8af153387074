#include "engines/lighten/LightenTarget.h"

#include "l10n/L.h"

namespace nuvrel {

namespace {

constexpr QSize fullHd{1920, 1080};
constexpr QSize hd{1280, 720};
constexpr QSize qhd{960, 540};
constexpr QSize vga{640, 480};

} // namespace

QString rawValue(LightenTarget target)
{
    switch (target) {
    case LightenTarget::WhatsApp: return QStringLiteral("whatsapp");
    case LightenTarget::Telegram: return QStringLiteral("telegram");
    case LightenTarget::Mail: return QStringLiteral("mail");
    case LightenTarget::Messages: return QStringLiteral("messages");
    case LightenTarget::Free: return QStringLiteral("free");
    }
    return {};
}

std::optional<LightenTarget> lightenTargetFromRawValue(const QString& raw)
{
    for (LightenTarget target : allLightenTargets) {
        if (rawValue(target) == raw)
            return target;
    }
    return std::nullopt;
}

QString title(LightenTarget target)
{
    switch (target) {
    case LightenTarget::WhatsApp: return L("WhatsApp");
    case LightenTarget::Telegram: return L("Telegram");
    case LightenTarget::Mail: return L("Mail");
    case LightenTarget::Messages: return L("Messages");
    case LightenTarget::Free: return L("Autre (Snapchat…)");
    }
    return {};
}

QString limitText(LightenTarget target)
{
    switch (target) {
    case LightenTarget::WhatsApp: return L("16 Mo max");
    case LightenTarget::Telegram: return L("2 Go max");
    case LightenTarget::Mail: return L("20 Mo max");
    case LightenTarget::Messages: return L("100 Mo max");
    case LightenTarget::Free: return L("au choix");
    }
    return {};
}

std::optional<qint64> byteBudget(LightenTarget target)
{
    switch (target) {
    case LightenTarget::WhatsApp: return 15'000'000;
    case LightenTarget::Mail: return 18'000'000;
    case LightenTarget::Messages: return 95'000'000;
    case LightenTarget::Telegram:
    case LightenTarget::Free: return std::nullopt;
    }
    return std::nullopt;
}

int maxPhotoSide(LightenTarget target)
{
    switch (target) {
    case LightenTarget::WhatsApp: return 1600;
    case LightenTarget::Telegram: return 2560;
    case LightenTarget::Mail: return 2000;
    case LightenTarget::Messages: return 2560;
    case LightenTarget::Free: return 2048;
    }
    return 2048;
}

QList<QSize> videoPresets(LightenTarget target)
{
    switch (target) {
    case LightenTarget::WhatsApp: return {hd, qhd, vga};
    case LightenTarget::Telegram: return {fullHd, hd};
    case LightenTarget::Mail: return {qhd, vga};
    case LightenTarget::Messages: return {fullHd, hd, qhd};
    case LightenTarget::Free: return {hd};
    }
    return {hd};
}

} // namespace nuvrel
