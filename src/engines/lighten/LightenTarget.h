#pragma once

#include <QList>
#include <QSize>
#include <QString>

#include <array>
#include <optional>

namespace nuvrel {

/// Where a lightened file is going: each channel has its byte budget, its largest photo side and the
/// video sizes it tries, in order.
enum class LightenTarget { WhatsApp, Telegram, Mail, Messages, Free };

/// Every target, in the order it is offered.
inline constexpr std::array<LightenTarget, 5> allLightenTargets{LightenTarget::WhatsApp, LightenTarget::Telegram,
                                                                LightenTarget::Mail, LightenTarget::Messages,
                                                                LightenTarget::Free};

/// "whatsapp", "telegram", "mail", "messages", "free": the name in settings and on the command line.
QString rawValue(LightenTarget target);
std::optional<LightenTarget> lightenTargetFromRawValue(const QString& raw);

/// The channel's name, shown ("WhatsApp", "Autre (Snapchat…)").
QString title(LightenTarget target);
/// Its limit as shown ("16 Mo max").
QString limitText(LightenTarget target);

/// The bytes a photo, video or PDF may take, set below the shown limit on purpose; nothing for the
/// channels that take anything (one pass, no budget). A size fits when it is at most the budget.
std::optional<qint64> byteBudget(LightenTarget target);
/// The longest side a photo keeps, in pixels.
int maxPhotoSide(LightenTarget target);
/// The frames a video is fitted into, largest first, each tried only while the result is over budget.
/// Landscape boxes: a portrait video fits the box turned.
QList<QSize> videoPresets(LightenTarget target);

} // namespace nuvrel
