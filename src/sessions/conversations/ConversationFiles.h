#pragma once

#include "engines/conversations/ConversationPdf.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <functional>

namespace nuvrel {

/// Where conversations are kept as PDFs, and under which names: shared by every page that saves one.
namespace ConversationFiles {

/// Documents/Nuvrel/Conversations.
QString folder();

/// A file name for a conversation's title: printable characters only, none a file system refuses,
/// at most 80 of them, never hidden; "Conversation.pdf" when nothing is left.
QString fileName(const QString& title);

/// One PDF of the folder, as the saved list shows it.
struct Saved
{
    QString pdf;
    QString title; ///< the file's name without ".pdf"
    QDateTime made;
    qint64 size = 0;
    ConversationPDF::Verification state = ConversationPDF::Verification::Intact;

    friend bool operator==(const Saved&, const Saved&) = default;
};

/// What saving several conversations came to, and the one line that says it.
struct SavedBatch
{
    int saved = 0;
    int empty = 0; ///< nothing left in the period
    int failed = 0;
    bool stopped = false;
    QString folder;

    /// Runs `save` for one conversation and counts how it ended.
    void record(const std::function<void()>& save);
    /// "2 conversations enregistrées en PDF · 1 vide ignorée. Chaque PDF a son fichier d'empreinte…"
    QString summary() const;
};

/// The PDFs of `folder`, newest first, each checked against its side file as `verify` does. Reads every
/// PDF whole: call it off the GUI thread.
QList<Saved> savedIn(const QString& folder);

} // namespace ConversationFiles

} // namespace nuvrel
