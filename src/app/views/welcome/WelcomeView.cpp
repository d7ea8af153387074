#include "app/views/welcome/WelcomeView.h"

#include "app/shell/Icons.h"
#include "app/widgets/IconLabel.h"
#include "app/widgets/Layouts.h"
#include "app/widgets/ShownText.h"
#include "l10n/L.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace nuvrel {

namespace {
const char* const pointIcons[] = {"explore", "vault", "check"};
}

WelcomeView::WelcomeView(QWidget* parent)
    : QWidget(parent)
    , m_title(new QLabel(this))
    , m_lead(new QLabel(this))
    , m_start(new QPushButton(this))
{
    auto* card = new QFrame(this);
    card->setObjectName(QStringLiteral("card"));
    card->setFixedWidth(600);
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_lead->setWordWrap(true);
    m_start->setObjectName(QStringLiteral("primary"));
    m_start->setDefault(true);
    m_start->setAutoDefault(true);

    // Box layouts, not a grid: only they give wrapped labels the height their width needs.
    auto* points = new QVBoxLayout;
    points->setSpacing(12);
    for (const char* name : pointIcons) {
        auto* icon = new IconLabel(QString::fromLatin1(name), 24, card);
        auto* text = new QLabel(card);
        text->setWordWrap(true);
        auto* row = new QHBoxLayout;
        row->setSpacing(12);
        row->addWidget(icon, 0, Qt::AlignTop);
        row->addWidget(text, 1);
        points->addLayout(row);
        m_points.append(text);
    }

    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(32, 28, 32, 28);
    cardLayout->setSpacing(16);
    cardLayout->addWidget(m_title);
    cardLayout->addWidget(m_lead);
    cardLayout->addLayout(points);
    cardLayout->addSpacing(8);
    cardLayout->addWidget(m_start, 0, Qt::AlignRight);

    auto* layout = new QVBoxLayout(this);
    layout->addStretch(1);
    layout->addLayout(centredRow(card));
    layout->addStretch(2);

    connect(m_start, &QPushButton::clicked, this, &WelcomeView::finished);
    retranslate();
}

void WelcomeView::retranslate()
{
    m_title->setText(L("Bienvenue dans Nuvrel"));
    m_lead->setText(L("Nuvrel t'aide à retrouver et à garder ce qui compte sur ton iPhone : photos, fichiers et "
                      "conversations."));
    m_points.at(0)->setText(L("Ouvre les sauvegardes de ton iPhone, même protégées par un mot de passe, et sors-en "
                              "des copies de tes photos, de tes fichiers et de tes conversations."));
    m_points.at(1)->setText(L("Tout se passe sur cet ordinateur : tes fichiers ne partent nulle part."));
    m_points.at(2)->setText(L("Tes sauvegardes ne sont jamais modifiées : Nuvrel en fait des copies."));
    m_start->setText(shownText(L("Commencer")));
}

} // namespace nuvrel
