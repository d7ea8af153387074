#pragma once

#include <QString>

#include <functional>

namespace nuvrel {

/// How a taken file name is numbered: "IMG_0001 (2).JPG" for extracted files, "photo-2.jpg" for the
/// program's own outputs.
enum class FreeNameStyle { Parenthesised, Hyphenated };

/// `base` followed by `tail` (a number, a suffix, an extension), the base cut (never inside a character)
/// so that the whole fits in the 255 bytes of UTF-8 a file name may hold; `tail` is kept whole.
QString nameWithTail(const QString& base, const QString& tail);

/// The `n`th candidate for `name` (n ≥ 2): the number goes before the extension; a leading dot starts
/// the name (".profile" → ".profile (2)"), it is no extension.
QString numberedName(const QString& name, int n, FreeNameStyle style);

/// `location` when nothing is there, else the first numbered name in the same folder that is free.
/// A check only: writers that must never replace a file use NewFile, which claims the name.
QString freeName(const QString& location, FreeNameStyle style);

/// `name`, read from a source we do not trust, made fit to be one file name: empty for "", "." and
/// "..", separators and control characters replaced by "_", cut to 255 bytes of UTF-8 (never inside a
/// character) keeping a short extension.
QString cleanFileName(const QString& name);

} // namespace nuvrel
