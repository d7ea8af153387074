#include "engines/conversations/ChatRecords.h"

#include "l10n/L.h"

namespace nuvrel {

QString ownerName()
{
    return L("Moi");
}

QString rawValue(ConvSource source)
{
    switch (source) {
    case ConvSource::WhatsApp: return QStringLiteral("whatsapp");
    case ConvSource::Telegram: return QStringLiteral("telegram");
    case ConvSource::Messages: return QStringLiteral("messages");
    }
    return {};
}

std::optional<ConvSource> convSourceFromRawValue(QStringView raw)
{
    for (ConvSource source : allConvSources) {
        if (raw == rawValue(source))
            return source;
    }
    return std::nullopt;
}

QString title(ConvSource source)
{
    switch (source) {
    case ConvSource::WhatsApp: return L("WhatsApp");
    case ConvSource::Telegram: return L("Telegram");
    case ConvSource::Messages: return L("Messages (iMessage, SMS)");
    }
    return {};
}

QString trimmedText(QStringView text)
{
    // QString::trimmed treats every Unicode space and line separator as whitespace, as the readers want.
    return text.trimmed().toString();
}

} // namespace nuvrel
