#include "app/shell/Page.h"

#include "l10n/L.h"

namespace nuvrel {

QString identifier(Page page)
{
    switch (page) {
    case Page::Home: return QStringLiteral("home");
    case Page::Backup: return QStringLiteral("backup");
    case Page::Lighten: return QStringLiteral("lighten");
    case Page::Conversations: return QStringLiteral("conversations");
    case Page::Print: return QStringLiteral("print");
    case Page::Explore: return QStringLiteral("explore");
    case Page::Duplicates: return QStringLiteral("duplicates");
    case Page::Space: return QStringLiteral("space");
    case Page::Transfer: return QStringLiteral("transfer");
    case Page::Vault: return QStringLiteral("vault");
    case Page::FilesCopy: return QStringLiteral("filesCopy");
    }
    Q_UNREACHABLE();
    return {};
}

QString title(Page page)
{
    switch (page) {
    case Page::Home: return L("Accueil");
    case Page::Backup: return L("Sauvegarde");
    case Page::Lighten: return L("Alléger");
    case Page::Conversations: return L("Conversations");
    case Page::Print: return L("Imprimer");
    case Page::Explore: return L("Explorer les sauvegardes");
    case Page::Duplicates: return L("Doublons");
    case Page::Space: return L("Espace et captures");
    case Page::Transfer: return L("Mac vers iPhone");
    case Page::Vault: return L("Coffre verrouillé");
    case Page::FilesCopy: return L("Copier iCloud Drive");
    }
    Q_UNREACHABLE();
    return {};
}

QString iconName(Page page)
{
    return page == Page::FilesCopy ? QStringLiteral("filescopy") : identifier(page);
}

} // namespace nuvrel
