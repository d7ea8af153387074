#include "WindowChecks.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QTabBar>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace nuvrel::test {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString rowText(const QAbstractItemView* view, int row)
{
    return view->model()->index(row, 0).data().toString();
}

void screenshot(QWidget& window, const QString& name)
{
    QApplication::processEvents();
    const QString path = QDir(QStringLiteral(NUVREL_SCREENSHOT_DIR)).filePath(name + QStringLiteral(".png"));
    QDir().mkpath(QFileInfo(path).path());
    EXPECT_TRUE(window.grab().save(path)) << qPrintable(path);
}

QStringList lostAmpersands(const QWidget& window)
{
    const auto loses = [](const QString& text) { return QString(text).remove(QStringLiteral("&&")).contains(u'&'); };
    QStringList lost;
    for (const QAbstractButton* button : window.findChildren<QAbstractButton*>()) {
        if (loses(button->text()))
            lost << button->text();
    }
    for (const QTabBar* tabs : window.findChildren<QTabBar*>()) {
        for (int i = 0; i < tabs->count(); ++i) {
            if (loses(tabs->tabText(i)))
                lost << tabs->tabText(i);
        }
    }
    for (const QAction* action : window.findChildren<QAction*>()) {
        if (loses(action->text()))
            lost << action->text();
    }
    return lost;
}

QStringList cutTexts(const QWidget& window)
{
    QStringList cut;
    for (const QAbstractButton* button : window.findChildren<QAbstractButton*>()) {
        if (button->isVisibleTo(&window) && !button->text().isEmpty() && button->width() < button->sizeHint().width())
            cut << button->text();
    }
    for (const QLabel* label : window.findChildren<QLabel*>()) {
        if (!label->isVisibleTo(&window) || label->text().isEmpty())
            continue;
        const bool fits = label->wordWrap() ? label->height() >= label->heightForWidth(label->width())
                                            : label->width() >= label->sizeHint().width();
        if (!fits)
            cut << label->text();
    }
    return cut;
}

namespace {

// Relative luminance and contrast ratio, as the web's accessibility guidelines define them.
double luminance(const QColor& colour)
{
    const auto channel = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(colour.redF()) + 0.7152 * channel(colour.greenF()) + 0.0722 * channel(colour.blueF());
}

double contrast(const QColor& a, const QColor& b)
{
    const double first = luminance(a) + 0.05;
    const double second = luminance(b) + 0.05;
    return std::max(first, second) / std::min(first, second);
}

} // namespace

QStringList faintTexts(const QWidget& window)
{
    const QColor background = window.palette().color(QPalette::Window);
    QStringList faint;
    for (const QLabel* label : window.findChildren<QLabel*>()) {
        if (!label->isVisibleTo(&window) || label->text().isEmpty())
            continue;
        const QColor text =
            label->palette().color(label->isEnabled() ? QPalette::Active : QPalette::Disabled, label->foregroundRole());
        if (contrast(text, background) < 4.5)
            faint << QStringLiteral("%1 (%2 on %3)").arg(label->text(), text.name(), background.name());
    }
    return faint;
}

namespace {

QString describe(const QWidget* widget)
{
    QString text;
    if (const auto* button = qobject_cast<const QAbstractButton*>(widget))
        text = button->text();
    else if (const auto* field = qobject_cast<const QLineEdit*>(widget))
        text = field->placeholderText();
    const QPoint at = widget->mapTo(widget->window(), QPoint(0, 0));
    return QStringLiteral("%1 \"%2\" at %3,%4")
        .arg(QString::fromLatin1(widget->metaObject()->className()), text)
        .arg(at.x())
        .arg(at.y());
}

} // namespace

QStringList tabOrderFaults(QWidget& window)
{
    QStringList faults;
    const QWidget* start = QApplication::focusWidget();
    if (!start || !window.isAncestorOf(start))
        return {QStringLiteral("nothing of the window has the keyboard")};
    QList<QWidget*> cycle{const_cast<QWidget*>(start)};
    for (int step = 0; step < 60; ++step) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QWidget* now = QApplication::focusWidget();
        if (now == start)
            break;
        if (!now || cycle.contains(now))
            return {QStringLiteral("Tab does not come back to where it started")};
        cycle << now;
    }
    for (QWidget* widget : window.findChildren<QWidget*>()) {
        if (widget->isVisibleTo(&window) && widget->isEnabled() && (widget->focusPolicy() & Qt::TabFocus) &&
            !widget->focusProxy() && !cycle.contains(widget))
            faults << QStringLiteral("never reached: ") + describe(widget);
    }
    const QWidget* sidebar = window.findChild<QWidget*>(QStringLiteral("sidebarPane"));
    const auto onPage = [sidebar](const QWidget* widget) { return !sidebar || !sidebar->isAncestorOf(widget); };
    // Read from the sidebar on, when there is one: the page then starts from its top.
    const auto first = std::find_if(cycle.begin(), cycle.end(), [&](const QWidget* widget) { return !onPage(widget); });
    std::rotate(cycle.begin(), first == cycle.end() ? cycle.begin() : first, cycle.end());
    const QWidget* previous = nullptr;
    for (const QWidget* widget : std::as_const(cycle)) {
        if (!onPage(widget))
            continue;
        if (previous) {
            const QPoint was = previous->mapTo(&window, QPoint(0, 0));
            const QPoint is = widget->mapTo(&window, QPoint(0, 0));
            const bool sameRow = std::abs(is.y() - was.y()) <= 8;
            // Going up is reading on only into a column further right (a list, then the form beside it).
            const bool nextColumn = is.x() > was.x() + 40;
            if ((sameRow && is.x() < was.x()) || (!sameRow && is.y() < was.y() && !nextColumn))
                faults << QStringLiteral("out of reading order: %1 after %2").arg(describe(widget), describe(previous));
        }
        previous = widget;
    }
    return faults;
}

QStringList macWords(const QWidget& window)
{
    static const QRegularExpression mac(QStringLiteral("\\b(Finder|Mac|macOS|Touch ID|Cmd|Trousseau)\\b"));
    QStringList texts;
    for (const QLabel* label : window.findChildren<QLabel*>()) {
        if (label->isVisibleTo(&window))
            texts << label->text();
    }
    for (const QAbstractButton* button : window.findChildren<QAbstractButton*>()) {
        if (button->isVisibleTo(&window))
            texts << button->text() << button->toolTip();
    }
    for (const QLineEdit* field : window.findChildren<QLineEdit*>()) {
        if (field->isVisibleTo(&window))
            texts << field->placeholderText();
    }
    for (const QTabBar* tabs : window.findChildren<QTabBar*>()) {
        for (int i = 0; i < tabs->count(); ++i)
            texts << tabs->tabText(i);
    }
    QStringList found;
    for (const QString& text : std::as_const(texts)) {
        if (text.contains(mac))
            found << text;
    }
    return found;
}

QString labelTexts(const QWidget& widget)
{
    QStringList texts;
    for (const QLabel* label : widget.findChildren<QLabel*>()) {
        if (label->isVisibleTo(&widget))
            texts << label->text();
    }
    return texts.join(u'\n');
}

} // namespace nuvrel::test
