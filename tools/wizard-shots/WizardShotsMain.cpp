// talvo-wizard-shots: the README's screenshots of the installer wizard.
//
// Builds the wizard exactly as talvo-add-print-queue does, then walks it
// through its pages, modes and sheets the way a user would (mode buttons,
// keystrokes in the address field, a list row selected, Continue) and saves
// the screen area of the wizard and its sheets after each step as
// OUT/wizard-NAME.png. Each step waits for what it should show (rows in the
// list, a display mode, a sheet) rather than for a fixed time, so a slow
// machine gives the same pictures. scripts/screenshots runs it under Xvfb
// inside the demo's sandboxed network.
//
// Prints "shot NAME PATH" for each picture; exits 1 when a step never shows
// what it waits for. --only NAME takes that one picture and stops there (the
// steps before it still run: they bring the wizard to it), which is all a
// picture of the wizard in another language needs.

#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"
#include "pane/AddPrintQueueSettings.h"
#include "pane/AddPrintQueueWizard.h"
#include "pane/PrinterListModel.h"
#include "pane/SnmpStringsSheet.h"
#include "pane/TalvoAddPrintQueuePane.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using talvo::TalvoAddPrintQueuePane;

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

struct Step
{
    QString what;                // for the log and the time-out message
    std::function<void()> act;   // what the user does
    std::function<bool()> ready; // true once the wizard shows the result
    int timeoutMs = 5000;
    QString shot;       // the picture's name; empty: none
    int settleMs = 600; // after ready: animations and repaints end
};

// Runs the steps one after the other on the event loop, polling each step's
// condition, so the wizard stays as live as it is for a user.
class Script : public QObject
{
public:
    // `only`: the one picture to take, the last step; empty: every picture.
    Script(std::vector<Step> steps, QString outFolder, QString only)
        : m_steps(std::move(steps)), m_outFolder(std::move(outFolder)), m_only(std::move(only))
    {
        m_poll.setInterval(100);
        connect(&m_poll, &QTimer::timeout, this, &Script::poll);
    }

    void start() { QTimer::singleShot(0, this, &Script::begin); }

private:
    void begin()
    {
        if (m_index >= m_steps.size()) {
            QApplication::exit(0);
            return;
        }
        const Step& step = m_steps[m_index];
        out() << "step " << step.what << Qt::endl;
        if (step.act)
            step.act();
        m_clock.start();
        m_poll.start();
    }

    void poll()
    {
        const Step& step = m_steps[m_index];
        if (step.ready && !step.ready()) {
            if (m_clock.elapsed() > step.timeoutMs) {
                m_poll.stop();
                out() << "timed out: " << step.what << Qt::endl;
                QApplication::exit(1);
            }
            return;
        }
        m_poll.stop();
        QTimer::singleShot(step.settleMs, this, [this] {
            const Step& done = m_steps[m_index];
            const bool wanted = !done.shot.isEmpty() && (m_only.isEmpty() || done.shot == m_only);
            if (wanted && !shoot(done.shot)) {
                QApplication::exit(1);
                return;
            }
            if (wanted && !m_only.isEmpty()) {
                QApplication::exit(0);
                return;
            }
            ++m_index;
            begin();
        });
    }

    // The screen area of every visible window (the wizard and its sheets),
    // taken from the X root window as the user sees it.
    bool shoot(const QString& name)
    {
        QRect area;
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (window->isVisible() &&
                !(window->windowType() == Qt::ToolTip || window->windowType() == Qt::Popup))
                area = area.united(window->frameGeometry());
        }
        QScreen* screen = QGuiApplication::primaryScreen();
        area = area.intersected(screen->geometry());
        QPixmap picture = screen->grabWindow(0, area.x(), area.y(), area.width(), area.height());
        outlineSheets(picture, area.topLeft());
        const QString path = QDir(m_outFolder).filePath(u"wizard-%1.png"_s.arg(name));
        if (picture.isNull() || !picture.save(path, "PNG")) {
            out() << "could not save " << path << Qt::endl;
            return false;
        }
        out() << "shot " << name << ' ' << path << Qt::endl;
        return true;
    }

    // Xvfb has no window manager, so a sheet has no edge of its own and melts
    // into the page under it: a thin outline and a soft shadow, as a desktop
    // draws them, keep it apart in the picture.
    static void outlineSheets(QPixmap& picture, QPoint origin)
    {
        QPainter painter(&picture);
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (!window->isVisible() || !window->parentWidget() || !window->inherits("QDialog"))
                continue;
            const QRect edge = window->frameGeometry().translated(-origin);
            for (int i = 1; i <= 4; ++i) {
                painter.setPen(QColor(0, 0, 0, 56 - 12 * i));
                painter.drawRect(edge.adjusted(-i, -i, i - 1, i - 1));
            }
            painter.setPen(window->palette().color(QPalette::Dark));
            painter.drawRect(edge.adjusted(0, 0, -1, -1));
        }
    }

    std::vector<Step> m_steps;
    QString m_outFolder;
    QString m_only;
    size_t m_index = 0;
    QTimer m_poll;
    QElapsedTimer m_clock;
};

// Keystrokes into the field, as typing them does: the selected text is
// replaced and every key emits textEdited.
void type(QLineEdit* field, const QString& text)
{
    field->setFocus();
    field->selectAll();
    for (const QChar c : text) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
        QCoreApplication::sendEvent(field, &press);
        QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(c));
        QCoreApplication::sendEvent(field, &release);
    }
}

int rowOfAddress(const talvo::PrinterListModel* list, const QString& address)
{
    for (int row = 0; row < list->rowCount(); ++row) {
        if (list->printerAt(row).value(talvo::kIPAddrStrKey).toString() == address)
            return row;
    }
    return -1;
}

template <typename Sheet> Sheet* visibleSheet(QWidget* pane, const QString& name = {})
{
    for (Sheet* sheet : pane->findChildren<Sheet*>()) {
        if (sheet->isVisible() && (name.isEmpty() || sheet->objectName() == name))
            return sheet;
    }
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"talvo-add-print-queue"_s);
    QApplication::setDesktopFileName(u"talvo-add-print-queue"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Takes screenshots of the installer wizard's pages, modes and sheets."_s);
    parser.addHelpOption();
    const QCommandLineOption resources(u"resources"_s, u"The resources folder."_s, u"DIR"_s);
    const QCommandLineOption usbBackend(u"usb-backend"_s,
                                        u"The CUPS usb backend to list USB printers with."_s, u"PATH"_s);
    const QCommandLineOption outFolder(u"out"_s, u"Where the PNG files go."_s, u"DIR"_s, u"."_s);
    const QCommandLineOption rows(u"rows"_s, u"Discovered printers to wait for before the list's picture."_s,
                                  u"N"_s, u"1"_s);
    const QCommandLineOption supported(u"supported"_s, u"A supported printer's address to type."_s,
                                       u"ADDR"_s);
    const QCommandLineOption unsupported(u"unsupported"_s, u"An unsupported printer's address to type."_s,
                                         u"ADDR"_s);
    const QCommandLineOption noDevice(u"no-device"_s, u"An address where nothing answers."_s, u"ADDR"_s);
    const QCommandLineOption create(u"create"_s, u"The discovered printer to create the queue for."_s,
                                    u"ADDR"_s);
    const QCommandLineOption only(
        u"only"_s, u"Takes only the picture NAME (say discovered) and stops there."_s, u"NAME"_s);
    const QCommandLineOption verbose({u"v"_s, u"verbose"_s}, u"Log what the setup does on standard error."_s);
    const QCommandLineOption stall(u"stall-seconds"_s,
                                   u"No pictures: for S seconds in the pane, switch modes every second and "
                                   "print the longest time the window went without handling an event."_s,
                                   u"S"_s);
    parser.addOptions({resources, usbBackend, outFolder, rows, supported, unsupported, noDevice, create, only,
                       verbose, stall});
    parser.process(app);

    if (parser.isSet(resources))
        talvo::setPluginResourcesPath(parser.value(resources));
    if (!parser.isSet(verbose))
        QLoggingCategory::setFilterRules(u"talvo.*.debug=false\ntalvo.*.info=false"_s);
    // The same wizard as talvo-add-print-queue's.
    TalvoAddPrintQueuePane::Options options;
    options.usbBackendPath = parser.value(usbBackend);
    const talvo::AddPrintQueueWizard made = talvo::makeAddPrintQueueWizard(options);
    talvo::InstallerWizard& wizard = *made.wizard;
    TalvoAddPrintQueuePane* pane = made.pane;
    const int closingId = made.closingPageId;

    auto* address = pane->findChild<QLineEdit*>(u"addressTextField"_s);
    auto* list = pane->findChild<QListView*>(u"discPrintersListView"_s);
    if (!address || !list) {
        out() << "the pane lacks addressTextField or discPrintersListView" << Qt::endl;
        return 1;
    }
    const int wantedRows = parser.value(rows).toInt();
    const auto manualStep = [&](const QString& typed, int displayMode, const QString& shot) {
        return Step{u"manual mode: %1"_s.arg(typed), [=] { type(address, typed); },
                    [=] { return pane->manualDisplayMode() == displayMode; }, 40000, shot};
    };
    const auto modeButton = [&](const char* name) {
        return pane->findChild<QAbstractButton*>(QLatin1StringView(name));
    };

    if (parser.isSet(stall)) {
        // How responsive the window stays (say while the network is flooded):
        // a 5 ms timer notes the longest gap between its ticks while a user
        // switches between walkup and the discovered list once a second.
        wizard.show();
        wizard.next();
        QElapsedTimer sinceTick;
        qint64 longest = 0;
        QTimer ticker;
        QObject::connect(&ticker, &QTimer::timeout,
                         [&] { longest = std::max(longest, sinceTick.restart()); });
        int switches = 0;
        QTimer user;
        QObject::connect(&user, &QTimer::timeout,
                         [&] { modeButton(++switches % 2 ? "walkupButton" : "discoverButton")->click(); });
        QTimer::singleShot(static_cast<int>(parser.value(stall).toDouble() * 1000), [&] {
            out() << "stall " << longest << " ms, " << switches << " mode switches, "
                  << pane->printerList()->rowCount() << " printers listed" << Qt::endl;
            QApplication::exit(0);
        });
        sinceTick.start();
        ticker.start(5);
        user.start(1000);
        return QApplication::exec();
    }

    std::vector<Step> steps;
    steps.push_back(
        {u"welcome"_s, [&] { wizard.show(); }, [&] { return wizard.isVisible(); }, 5000, u"welcome"_s, 1000});
    steps.push_back({u"discovered mode"_s, [&] { wizard.next(); },
                     [&] { return pane->printerList()->rowCount() >= wantedRows; }, 40000, u"discovered"_s,
                     2000});
    steps.push_back({u"walkup mode"_s, [&] { modeButton("walkupButton")->click(); },
                     [&] { return pane->selectPrinterMode() == TalvoAddPrintQueuePane::WalkupMode; }, 5000,
                     u"walkup"_s});
    steps.push_back({u"manual mode"_s, [&] { modeButton("manualButton")->click(); },
                     [&] { return pane->selectPrinterMode() == TalvoAddPrintQueuePane::ManualMode; }, 5000,
                     QString()});
    if (parser.isSet(supported))
        steps.push_back(manualStep(parser.value(supported),
                                   TalvoAddPrintQueuePane::manualAddSupportedPrinterAtAddress,
                                   u"manual-supported"_s));
    if (parser.isSet(unsupported))
        steps.push_back(manualStep(parser.value(unsupported),
                                   TalvoAddPrintQueuePane::manualAddUnsupportedPrinterAtAddress,
                                   u"manual-unsupported"_s));
    if (parser.isSet(noDevice))
        steps.push_back(manualStep(parser.value(noDevice), TalvoAddPrintQueuePane::manualAddNoHostAtAddress,
                                   u"manual-no-device"_s));
    steps.push_back({u"advanced search sheet"_s,
                     [&] {
                         modeButton("discoverButton")->click();
                         pane->doAdvancedSheet();
                     },
                     [&] { return visibleSheet<talvo::AddPrintQueueSettings>(pane) != nullptr; }, 5000,
                     u"advanced-search"_s});
    steps.push_back({u"advanced search sheet cancelled"_s,
                     [&] { visibleSheet<talvo::AddPrintQueueSettings>(pane)->cancelButton()->click(); },
                     [&] { return visibleSheet<talvo::AddPrintQueueSettings>(pane) == nullptr; }, 5000,
                     QString()});
    steps.push_back({u"SNMP sheet"_s, [&] { pane->showSNMPStringsSheet(); },
                     [&] { return visibleSheet<talvo::SnmpStringsSheet>(pane) != nullptr; }, 5000,
                     u"snmp-strings"_s});
    steps.push_back({u"SNMP sheet cancelled"_s,
                     [&] { visibleSheet<talvo::SnmpStringsSheet>(pane)->cancelButton()->click(); },
                     [&] { return visibleSheet<talvo::SnmpStringsSheet>(pane) == nullptr; }, 5000,
                     QString()});
    if (parser.isSet(create)) {
        const QString printer = parser.value(create);
        steps.push_back(
            {u"select %1 and Continue"_s.arg(printer),
             [&, printer] {
                 const int row = rowOfAddress(pane->printerList(), printer);
                 if (row < 0) {
                     out() << printer << " is not in the discovered list" << Qt::endl;
                     return;
                 }
                 list->setCurrentIndex(pane->printerList()->index(row));
                 list->scrollTo(list->currentIndex());
                 wizard.next();
             },
             [&] {
                 if (visibleSheet<QMessageBox>(pane, u"queueFailedAlert"_s)) {
                     out() << "queue creation failed: "
                           << visibleSheet<QMessageBox>(pane, u"queueFailedAlert"_s)->text() << ' '
                           << visibleSheet<QMessageBox>(pane, u"queueFailedAlert"_s)->informativeText()
                           << Qt::endl;
                     QApplication::exit(1);
                 }
                 return visibleSheet<QMessageBox>(pane, u"queueCreatedSheet"_s) != nullptr;
             },
             60000, u"queue-created"_s});
        steps.push_back(
            {u"closing page"_s,
             [&] {
                 visibleSheet<QMessageBox>(pane, u"queueCreatedSheet"_s)->button(QMessageBox::Ok)->click();
             },
             [&] { return wizard.currentId() == closingId; }, 10000, u"closing"_s, 1000});
    }

    const QString onlyShot = parser.value(only);
    if (!onlyShot.isEmpty() &&
        std::none_of(steps.cbegin(), steps.cend(), [&](const Step& step) { return step.shot == onlyShot; })) {
        out() << "no step takes the picture " << onlyShot << Qt::endl;
        return 1;
    }
    Script script(std::move(steps), parser.value(outFolder), onlyShot);
    script.start();
    return QApplication::exec();
}
