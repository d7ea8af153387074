#include "cli/LightenCommand.h"

#include "cli/TextTable.h"
#include "engines/lighten/LightenError.h"
#include "engines/lighten/Lightener.h"
#include "l10n/L.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

namespace nuvrel::cli {

int runLighten(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (line.arguments.isEmpty()) {
        err << L("Précise les fichiers à alléger.") << '\n';
        return BadUsage;
    }
    if (!line.target) {
        err << L("L'option %@ attend une valeur.", QStringLiteral("--target ") + lightenTargetChoices()) << '\n';
        return BadUsage;
    }
    const std::optional<LightenTarget> target = lightenTargetFromRawValue(*line.target);
    if (!target) {
        err << L("Destination inconnue : %@. Choix possibles : %@.", escapedControls(*line.target),
                 lightenTargetChoices())
            << '\n';
        return BadUsage;
    }
    if (!line.destination) {
        err << L("L'option %@ attend une valeur.", QStringLiteral("--to")) << '\n';
        return BadUsage;
    }

    LightenOptions options;
    options.target = *target;
    options.stripLocation = !line.keepLocation;
    options.convertHeic = !line.keepHeic;
    const QString folder = QDir(*line.destination).absolutePath();
    const bool showProgress = stderrIsTerminal();

    bool anyFailed = false;
    if (line.json)
        out << "[\n";
    for (qsizetype i = 0; i < line.arguments.size(); ++i) {
        const QString source = QFileInfo(line.arguments[i]).absoluteFilePath();
        const QString shown = escapedControls(QDir::toNativeSeparators(line.arguments[i]));
        QElapsedTimer clock;
        clock.start();
        const LightenProgress progress = [&](double fraction) {
            if (!showProgress || clock.elapsed() < 200)
                return;
            clock.restart();
            err << '\r' << L("%@ : %@ %", shown, int(fraction * 100)) << "   ";
            err.flush();
        };
        QString failure;
        LightenOutcome outcome;
        try {
            outcome = Lightener::lighten(source, options, folder, progress);
        } catch (const LocalizedError& error) {
            failure = error.message();
        }
        if (showProgress && Lightener::routeFor(source) == LightenRoute::Video)
            err << '\r' << QString(shown.size() + 12, u' ') << '\r';
        if (line.json) {
            out << (i == 0 ? "  {" : ",\n  {") << "\"source\": " << jsonQuoted(source);
            if (failure.isEmpty())
                out << ", \"output\": " << jsonQuoted(outcome.output) << ", \"sizeBefore\": " << outcome.sizeBefore
                    << ", \"sizeAfter\": " << outcome.sizeAfter << '}';
            else
                out << ", \"error\": " << jsonQuoted(failure) << '}';
        } else if (failure.isEmpty()) {
            out << L("%@ : %@ → %@", shown, Localizer::formatByteCount(outcome.sizeBefore),
                     Localizer::formatByteCount(outcome.sizeAfter))
                << "  " << escapedControls(QDir::toNativeSeparators(outcome.output)) << '\n';
        } else {
            err << L("%@ : %@", shown, escapedControls(failure)) << '\n';
        }
        out.flush();
        anyFailed = anyFailed || !failure.isEmpty();
    }
    if (line.json)
        out << "\n]\n";
    return anyFailed ? SomeFilesFailed : Found;
}

} // namespace nuvrel::cli
