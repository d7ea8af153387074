#pragma once

#include "engines/lighten/Lightener.h"

#include <QString>
#include <QUuid>

#include <functional>

namespace nuvrel {

/// One row of the lighten page: a file the user added, and what became of it.
struct LightenItem
{
    enum class State { Waiting, Working, Done, Failed };

    QUuid id = QUuid::createUuid();
    QString path;    ///< the source, never written
    qint64 size = 0; ///< the source's size when it was added
    LightenRoute route = LightenRoute::Other;
    State state = State::Waiting;
    double progress = -1; ///< a video's share written, while working; -1 otherwise
    QString output;       ///< when done
    qint64 sizeBefore = 0;
    qint64 sizeAfter = 0;
    std::function<QString()> failure; ///< when failed: the reason, worded in the language in force
};

} // namespace nuvrel
