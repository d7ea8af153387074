#pragma once

#include <QString>

namespace nuvrel {

/// The recovery sheet: one printable page that records a backup's password, for the drawer.
class PasswordSheet final
{
public:
    PasswordSheet() = delete;

    /// Writes the sheet as a one-page A4 PDF in the system's temporary folder
    /// ("Nuvrel-fiche-<uuid>.pdf") and returns its path; empty when it could not be written.
    /// Needs a QGuiApplication (fonts).
    static QString make(const QString& device, const QString& password);
};

} // namespace nuvrel
