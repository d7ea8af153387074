#include "app/views/home/HomeView.h"

#include "app/shell/Icons.h"
#include "app/widgets/CardButton.h"
#include "app/widgets/IconLabel.h"
#include "l10n/L.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace nuvrel {

QString pageDescription(Page page)
{
    switch (page) {
    case Page::Conversations:
        return L("Garde une conversation en PDF : d'une sauvegarde, d'un export WhatsApp ou Telegram, ou d'un texte "
                 "collé.");
    case Page::Lighten:
        return L("Rends tes photos, vidéos et PDF assez légers pour WhatsApp, Telegram ou un courriel.");
    case Page::Duplicates:
        return L("Trouve les fichiers en double et les photos qui se ressemblent, et libère de la place sans rien "
                 "perdre.");
    case Page::Explore: return L("Retrouve les photos, les fichiers et les conversations de tes sauvegardes d'iPhone.");
    case Page::Transfer:
        return L("Envoie de gros fichiers et des dossiers à ton iPhone par le Wi-Fi, sans câble ni nuage.");
    case Page::Backup:
        return L(
            "Copie les photos et vidéos de ton iPhone sur cet ordinateur, rangées par mois, sans jamais les copier "
            "deux fois.");
    case Page::Vault:
        return L("Garde tes fichiers les plus privés chiffrés, ouverts seulement après ton identification.");
    default: return {};
    }
}

HomeView::HomeView(const QList<Page>& pages, QWidget* parent)
    : QWidget(parent)
    , m_title(new QLabel(this))
    , m_subtitle(new QLabel(this))
{
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_subtitle->setObjectName(QStringLiteral("muted"));
    m_subtitle->setWordWrap(true);

    auto* grid = new QGridLayout;
    grid->setSpacing(14);
    int index = 0;
    for (const Page page : pages) {
        if (page == Page::Home)
            continue;
        // A button holding labels: it takes the clicks and the keyboard, the labels only show.
        auto* card = new CardButton(this);
        card->setObjectName(QStringLiteral("card"));
        card->setMinimumHeight(96);
        card->setCursor(Qt::PointingHandCursor);
        auto* icon = new IconLabel(iconName(page), 36, card);
        auto* titleLabel = new QLabel(card);
        titleLabel->setObjectName(QStringLiteral("sectionTitle"));
        auto* description = new QLabel(card);
        description->setObjectName(QStringLiteral("muted"));
        description->setWordWrap(true);
        for (QWidget* label : std::initializer_list<QWidget*>{icon, titleLabel, description})
            label->setAttribute(Qt::WA_TransparentForMouseEvents);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(4);
        texts->addWidget(titleLabel);
        texts->addWidget(description);
        auto* cardLayout = new QHBoxLayout(card);
        cardLayout->setContentsMargins(18, 14, 18, 14);
        cardLayout->setSpacing(16);
        cardLayout->addWidget(icon, 0, Qt::AlignVCenter);
        cardLayout->addLayout(texts, 1);
        connect(card, &QPushButton::clicked, this, [this, page] { Q_EMIT pageChosen(page); });
        grid->addWidget(card, index / 2, index % 2);
        m_cards.append({page, card, titleLabel, description});
        ++index;
    }
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(10);
    layout->addWidget(m_title);
    layout->addWidget(m_subtitle);
    layout->addSpacing(10);
    layout->addLayout(grid);
    layout->addStretch(1);
    retranslate();
}

void HomeView::retranslate()
{
    m_title->setText(L("Accueil"));
    m_subtitle->setText(L("Tout se passe sur cet ordinateur : tes fichiers ne partent nulle part."));
    for (const Card& card : std::as_const(m_cards)) {
        card.title->setText(title(card.page));
        card.description->setText(pageDescription(card.page));
        card.button->setAccessibleName(title(card.page));
        card.button->setAccessibleDescription(pageDescription(card.page));
    }
}

} // namespace nuvrel
