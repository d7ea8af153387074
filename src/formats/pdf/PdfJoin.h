#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

namespace nuvrel {

/// Joins PDF documents written by QPdfWriter into one, their pages in order: the parts of a long
/// document drawn on several cores at once. The first part gives the document its information
/// (title, creator) and page tree; the objects of the others are renumbered after it, their streams
/// copied byte for byte. Only the plain structure QPdfWriter writes is understood (a cross-reference
/// table, no object streams); anything else gives nothing, and the caller draws the document whole.
std::optional<QByteArray> joinPdfs(const QList<QByteArray>& parts);

} // namespace nuvrel
