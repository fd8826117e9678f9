// The wizard as a user drives it, on the offscreen platform: simulated
// printers (talvo-printer-sim with a real snmpd each) in a sandbox network,
// the wizard in the sandbox's client host, queues created in a private cupsd.

#include "EventLoop.h"
#include "LogCapture.h"
#include "ScratchMount.h"
#include "discovery/BroadcastPacket.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "fixtures/CupsServer.h"
#include "fixtures/NetworkSandbox.h"
#include "fixtures/PrinterSim.h"
#include "fixtures/ScopedNetns.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"
#include "foundation/Settings.h"
#include "installer/InstallerWizard.h"
#include "pane/AddPrintQueueSettings.h"
#include "pane/Localization.h"
#include "pane/PrinterListModel.h"
#include "pane/SnmpStringsSheet.h"
#include "pane/TalvoAddPrintQueuePane.h"
#include "queue/QueueCreation.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QRandomGenerator>

#include <atomic>
#include <iostream>
#include <memory>
#include <thread>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using test::CupsServer;
using test::NetworkSandbox;
using test::PrinterSim;
using test::processEventsFor;
using test::processEventsUntil;
using test::ScopedNetns;

const QString kClient = u"10.77.61.10"_s;

PrinterSim startSim(const NetworkSandbox& sandbox, const QString& host, const QStringList& printers,
                    const QStringList& extra = {})
{
    return PrinterSim(sandbox, host, printers, extra, QStringLiteral(TALVO_BIN_DIR "/talvo-printer-sim"),
                      QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist"));
}

// The network, the printers and a resources folder shared by the suite.
struct World
{
    NetworkSandbox sandbox;
    std::unique_ptr<PrinterSim> printers;
    QTemporaryDir resources;

    World()
    {
        // No default route: a name lookup fails at once.
        sandbox.addHost(u"client"_s, kClient + u"/24"_s, {.segment = {}, .defaultRoute = false});
        sandbox.addHost(u"printers"_s, u"10.77.61.20/24"_s);
        for (const QString& extra : {u"10.77.61.21/24"_s, u"10.77.61.22/24"_s})
            sandbox.addAddress(u"printers"_s, extra);
        // The walkup printer lives on a host of its own: a simulator binds the
        // discovery port of its whole host.
        sandbox.addHost(u"panel"_s, u"10.77.61.23/24"_s);
        sandbox.addHost(u"panel2"_s, u"10.77.61.24/24"_s);
        // A hostile host on the same LAN.
        sandbox.addHost(u"flooder"_s, u"10.77.61.30/24"_s);
        // Two supported printers that answer discovery (one of them twice per
        // request) and one of another make that only answers SNMP.
        printers = std::make_unique<PrinterSim>(
            sandbox, u"printers"_s,
            QStringList{
                u"model=Model 4000,address=10.77.61.20,sysname=front-desk,reply=duplicate"_s,
                u"model=Model 8560,address=10.77.61.21"_s,
                u"model=Acme 100,address=10.77.61.22,sysobjectid=.1.3.6.1.4.1.99999.1,reply=silent"_s},
            QStringList{}, QStringLiteral(TALVO_BIN_DIR "/talvo-printer-sim"),
            QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist"));

        // The shipped resources, with settings that leave out the methods
        // this suite does not serve (Bonjour, USB) and name the shipped PPDs.
        const QString shipped = QStringLiteral(TALVO_BUILD_RESOURCE_DIR);
        for (const QString& entry : {u"images"_s, u"translations"_s, u"Walkup.html"_s, u"Info.plist"_s})
            QFile::link(shipped + u'/' + entry, resources.filePath(entry));
        QVariantMap settings = *getSettingsDict(shipped + u"/PluginSettings.plist"_s);
        QVariantMap discovery = settings.value(kDiscoverySettingsKey).toMap();
        discovery.insert(useBonjourKey, false);
        discovery.insert(useUSBDiscoveryKey, false);
        settings.insert(kDiscoverySettingsKey, discovery);
        settings.insert(kPPDDirectoryKey, QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/../ppd/talvo"));
        EXPECT_TRUE(plist::writeXmlFile(resources.filePath(u"PluginSettings.plist"_s), settings).isOk());
    }
};

class PaneTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_world = std::make_unique<World>();
        // The test clicks buttons by their English texts, whatever LANG says.
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        installTranslations(s_world->resources.path());
    }
    static void TearDownTestSuite() { s_world.reset(); }

    void SetUp() override
    {
        ASSERT_TRUE(s_world->printers->ready()) << s_world->printers->failure().toStdString();
        m_cups = std::make_unique<CupsServer>();
        ASSERT_TRUE(m_cups->ready()) << m_cups->failureMessage().toStdString();
        qputenv("CUPS_SERVER", m_cups->socketPath().toUtf8());
        qputenv("HOME", m_home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", m_home.filePath(u"config"_s).toUtf8());
        setPluginResourcesPath(s_world->resources.path());
        // The wizard's sockets, threads and children live in the client host.
        m_inClient = std::make_unique<ScopedNetns>(s_world->sandbox, u"client"_s);

        m_wizard = std::make_unique<InstallerWizard>(WizardTexts::fromLookup(&localizedStringForKey));
        m_pane = new TalvoAddPrintQueuePane;
        m_wizard->addPane(m_pane);
        m_wizard->addClosingPage();
        m_wizard->show();
        m_wizard->next(); // from the welcome page into the pane
        QObject::connect(m_pane, &TalvoAddPrintQueuePane::manualDisplayModeChanged,
                         [this](int mode) { m_displayModes << mode; });
    }
    void TearDown() override
    {
        m_wizard.reset();
        m_inClient.reset();
        qunsetenv("CUPS_SERVER");
        setPluginResourcesPath(QString());
    }

    template <typename T = QWidget> T* child(const char* name) const
    {
        return m_wizard->findChild<T*>(QLatin1StringView(name));
    }
    QMessageBox* visibleSheet(const char* name) const
    {
        QMessageBox* sheet = child<QMessageBox>(name);
        return sheet && sheet->isVisible() ? sheet : nullptr;
    }
    bool waitForSheet(const char* name, std::chrono::milliseconds limit = 20s) const
    {
        return processEventsUntil([&] { return visibleSheet(name) != nullptr; }, limit);
    }
    void clickSheetButton(const char* sheet, const QString& text) const
    {
        for (QAbstractButton* button : visibleSheet(sheet)->buttons())
            if (button->text() == text)
                return button->click();
        ADD_FAILURE() << "no button " << text.toStdString() << " on " << sheet;
    }
    QString queues() const { return QString::fromLocal8Bit(m_cups->lpstat({u"-v"_s}).standardOutput); }
    QVariantMap installedPrinter() const
    {
        return m_wizard->sharedDictionary().value(kInstalledPrinterDictKey).toMap();
    }
    QStringList listedAddresses() const
    {
        QStringList addresses;
        for (const QVariantMap& printer : m_pane->printerList()->printers())
            addresses << printer.value(kIPAddrStrKey).toString();
        return addresses;
    }
    void typeAddress(const QString& text)
    {
        auto* field = child<QLineEdit>("addressTextField");
        field->selectAll();
        QTest::keyClick(field, Qt::Key_Backspace);
        QTest::keyClicks(field, text);
    }

    static inline std::unique_ptr<World> s_world;
    QTemporaryDir m_home;
    std::unique_ptr<CupsServer> m_cups;
    std::unique_ptr<ScopedNetns> m_inClient;
    std::unique_ptr<InstallerWizard> m_wizard;
    TalvoAddPrintQueuePane* m_pane = nullptr;
    QList<int> m_displayModes;
};

TEST_F(PaneTest, DiscoveredPrintersAreListedOnceAndContinueCreatesTheChosenQueue)
{
    ASSERT_EQ(m_wizard->currentPage(), m_pane);
    EXPECT_EQ(m_pane->selectPrinterMode(), TalvoAddPrintQueuePane::DiscoveredMode);
    ASSERT_TRUE(processEventsUntil([&] { return m_pane->printerList()->rowCount() >= 2; }, 15s));
    processEventsFor(1500ms); // the duplicate replies and the SNMP answers are in
    QStringList listed = listedAddresses();
    listed.sort();
    ASSERT_EQ(listed, (QStringList{u"10.77.61.20"_s, u"10.77.61.21"_s}));
    for (int row = 0; row < m_pane->printerList()->rowCount(); ++row) {
        const QModelIndex index = m_pane->printerList()->index(row);
        const QVariantMap printer = m_pane->printerList()->printerAt(row);
        EXPECT_FALSE(printer.contains(kPrinterIconImgKey) || printer.contains(kPrinterPresentationStrKey))
            << "view data in the printer's dictionary";
        EXPECT_FALSE(index.data(Qt::DecorationRole).value<QIcon>().isNull());
        const QString text = index.data(Qt::DisplayRole).toString();
        EXPECT_TRUE(text.contains(printer.value(kPrinterModelStrKey).toString()) &&
                    text.contains(printer.value(kIPAddrStrKey).toString()))
            << text.toStdString();
    }

    // Continue with the Model 8560 selected; the window keeps handling events
    // while the queue is made. The user has a queue of the printer's name
    // already: it stays as it was, and ours is named after it.
    auto* view = child<QListView>("discPrintersListView");
    const int chosen = static_cast<int>(listedAddresses().indexOf(u"10.77.61.21"_s));
    view->setCurrentIndex(m_pane->printerList()->index(chosen));
    const QString usersQueue =
        m_pane->printerList()->printers().value(chosen).value(kCUPSQueueNameKey).toString();
    ASSERT_FALSE(usersQueue.isEmpty());
    ASSERT_TRUE(test::Subprocess::run({u"lpadmin"_s, u"-h"_s, m_cups->socketPath(), u"-p"_s, usersQueue,
                                       u"-E"_s, u"-v"_s, u"socket://192.0.2.9"_s})
                    .succeeded());
    int ticks = 0;
    bool sawBusy = false;
    bool leavingWasPossible = false;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        if (!m_pane->isCreatingQueue())
            return;
        sawBusy = true;
        ++ticks;
        leavingWasPossible = leavingWasPossible || m_wizard->button(QWizard::BackButton)->isEnabled() ||
                             m_wizard->button(QWizard::CancelButton)->isEnabled();
        if (ticks == 1) {
            m_wizard->reject(); // Escape, or Cancel if it could be pressed
            m_wizard->close();
        }
    });
    ticker.start(10);
    m_wizard->next();
    EXPECT_EQ(m_wizard->currentPage(), m_pane) << "the pane leaves only through the sheet";
    ASSERT_TRUE(waitForSheet("queueCreatedSheet")) << "no success sheet";
    EXPECT_TRUE(sawBusy && ticks > 0) << "the event loop stood still while the queue was created";
    EXPECT_FALSE(leavingWasPossible) << "Back or Cancel was enabled while lpadmin ran";
    EXPECT_TRUE(m_wizard->isVisible()) << "closed while the queue was being created";
    if (auto* wait = m_wizard->findChild<QMessageBox*>(u"waitForPaneAlert"_s))
        wait->accept();
    else
        ADD_FAILURE() << "closing did not ask to wait";
    EXPECT_TRUE(m_wizard->button(QWizard::BackButton)->isEnabled());

    const QVariantMap installed = installedPrinter();
    const QString queue = installed.value(kCUPSQueueNameKey).toString();
    EXPECT_EQ(queue, usersQueue + u"_2"_s);
    EXPECT_FALSE(installed.value(kPrinterIconImgKey).value<QIcon>().isNull()) << "later pages show the icon";
    EXPECT_TRUE(installed.value(kPrinterPresentationStrKey).toString().contains(u"10.77.61.21"_s));
    EXPECT_TRUE(visibleSheet("queueCreatedSheet")->text().contains(queue));
    EXPECT_EQ(installed.value(kIPAddrStrKey), u"10.77.61.21"_s);
    EXPECT_TRUE(queues().contains(queue + u":"_s)) << queues().toStdString();
    EXPECT_TRUE(queues().contains(u"device for "_s + usersQueue + u": socket://192.0.2.9\n"_s))
        << queues().toStdString();
    // The queue's PPD carries the options the printer reported installed.
    QFile ppd(m_cups->storedPpdPath(queue));
    ASSERT_TRUE(ppd.open(QIODevice::ReadOnly)) << ppd.fileName().toStdString();
    EXPECT_TRUE(ppd.readAll().contains("*DefaultOptionalDuplexer: True"));
    visibleSheet("queueCreatedSheet")->accept();
    ASSERT_TRUE(processEventsUntil([&] { return m_wizard->currentPage() != m_pane; }, 5s));
    bool closingNamesQueue = false;
    for (const QLabel* label : m_wizard->currentPage()->findChildren<QLabel*>())
        closingNamesQueue = closingNamesQueue || label->text().contains(queue);
    EXPECT_TRUE(closingNamesQueue) << "the closing page does not show " << queue.toStdString();
    EXPECT_FALSE(m_pane->discoveryEngine()->discoveryStarted());
}

TEST_F(PaneTest, AFailingLpadminIsShownWithItsTextAndThePaneStaysAsItWas)
{
    ASSERT_TRUE(processEventsUntil([&] { return m_pane->printerList()->rowCount() >= 1; }, 15s));
    auto* view = child<QListView>("discPrintersListView");
    view->setCurrentIndex(m_pane->printerList()->index(0));
    m_cups->stop(); // lpadmin finds no scheduler
    QString reported;
    QObject::connect(m_pane, &TalvoAddPrintQueuePane::queueCreationFinished,
                     [&](bool created, const QString& text) { reported = created ? u"created"_s : text; });
    m_wizard->next();
    ASSERT_TRUE(waitForSheet("queueFailedAlert"));
    QMessageBox* alert = visibleSheet("queueFailedAlert");
    EXPECT_FALSE(reported.isEmpty());
    EXPECT_NE(reported, u"created"_s);
    EXPECT_TRUE(alert->informativeText().contains(reported.toHtmlEscaped()))
        << alert->informativeText().toStdString();
    alert->accept();
    processEventsFor(300ms);
    EXPECT_EQ(m_wizard->currentPage(), m_pane);
    EXPECT_EQ(view->currentIndex().row(), 0);
    EXPECT_TRUE(m_pane->isComplete()) << "Continue stays usable";
    EXPECT_TRUE(installedPrinter().isEmpty());

    // The search goes on: a printer that appears now is listed.
    EXPECT_TRUE(m_pane->discoveryEngine()->discoveryStarted());
    const PrinterSim late =
        startSim(s_world->sandbox, u"panel2"_s, {u"model=Model 4000,address=10.77.61.24"_s});
    ASSERT_TRUE(late.ready()) << late.failure().toStdString();
    EXPECT_TRUE(processEventsUntil([&] { return listedAddresses().contains(u"10.77.61.24"_s); }, 15s));
}

// The user selects a second printer at its panel while the first one's queue
// is being made, and that creation fails: the second is made next.
TEST_F(PaneTest, AWalkupSelectionDuringACreationIsMadeNext)
{
    test::ScratchMount scratch(64 * 1024);
    ASSERT_TRUE(scratch.ready()) << scratch.failure().toStdString();
    QFile standIn(scratch.filePath(u"lpadmin"_s));
    ASSERT_TRUE(standIn.open(QIODevice::WriteOnly));
    standIn.write("#!/bin/sh\nsleep 4\necho 'lpadmin: the stand-in refuses' >&2\nexit 1\n");
    standIn.close();
    ASSERT_TRUE(standIn.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    ASSERT_TRUE(scratch.bindOver(QLatin1StringView(kLpadminProgram), u"lpadmin"_s));

    const PrinterSim first =
        startSim(s_world->sandbox, u"panel"_s, {u"model=Model 6500,address=10.77.61.23,reply=silent"_s},
                 {u"--walkup"_s, u"printer=10.77.61.23,to=10.77.61.10,select=0.5"_s});
    const PrinterSim second =
        startSim(s_world->sandbox, u"panel2"_s, {u"model=Model 4000,address=10.77.61.24,reply=silent"_s},
                 {u"--walkup"_s, u"printer=10.77.61.24,to=10.77.61.10,select=2.5"_s});
    ASSERT_TRUE(first.ready() && second.ready())
        << first.failure().toStdString() << second.failure().toStdString();
    test::LogCapture log;
    int failures = 0;
    QObject::connect(m_pane, &TalvoAddPrintQueuePane::queueCreationFinished,
                     [&](bool created, const QString&) { failures += !created; });
    child<QAbstractButton>("walkupButton")->click();
    ASSERT_TRUE(processEventsUntil([&] { return failures == 2; }, 30s))
        << failures << " creations failed; " << log.lines().join(u'\n').toStdString();
    const QStringList lines = log.lines();
    const auto started = [&](const QString& address) {
        return lines.indexOf(u"createPrintQueueForPrinter: "_s + address);
    };
    EXPECT_GE(started(u"10.77.61.23"_s), 0);
    EXPECT_GT(started(u"10.77.61.24"_s), started(u"10.77.61.23"_s));
    EXPECT_TRUE(m_pane->discoveryEngine()->walkupEnabled()) << "walkup stopped after the failures";
}

TEST_F(PaneTest, ManualAddressIsProbedAfterTypingStopsAndAnOtherModelCanBeChosen)
{
    m_pane->setMode(TalvoAddPrintQueuePane::ManualMode);
    test::LogCapture log;

    // A supported printer: invalid while incomplete, one probe once typing
    // has paused, then the printer with its model.
    typeAddress(u"10.77.61.21"_s);
    ASSERT_TRUE(processEventsUntil(
        [&] {
            return m_pane->manualDisplayMode() == TalvoAddPrintQueuePane::manualAddSupportedPrinterAtAddress;
        },
        15s))
        << "display modes seen: "
        << ::testing::PrintToString(std::vector<int>(m_displayModes.begin(), m_displayModes.end()));
    EXPECT_EQ(m_displayModes.first(), TalvoAddPrintQueuePane::manualAddEmptyAddress);
    EXPECT_EQ(m_displayModes.count(TalvoAddPrintQueuePane::manualAddProcessing), 1);
    EXPECT_LT(m_displayModes.indexOf(TalvoAddPrintQueuePane::manualAddInvalidAddress),
              m_displayModes.indexOf(TalvoAddPrintQueuePane::manualAddProcessing));
    EXPECT_FALSE(child("printerModelSelectMenu")->isVisible()) << "a supported model needs no choice";
    EXPECT_TRUE(child<QLabel>("informationLabel")->text().contains(u"Model 8560"_s));

    // A silent address: a newer keystroke stops its probe, whose outcome never shows.
    typeAddress(u"10.77.61.99"_s);
    ASSERT_TRUE(processEventsUntil(
        [&] { return m_pane->manualDisplayMode() == TalvoAddPrintQueuePane::manualAddProcessing; }, 5s));
    processEventsFor(1500ms); // checking shows at once; the probe starts once typing pauses
    // The edit makes the text invalid, so no newer probe can show an outcome.
    QTest::keyClick(child("addressTextField"), Qt::Key_X);
    EXPECT_TRUE(log.lines().contains(u"Cancelling running validate thread"_s));
    processEventsFor(4s);
    EXPECT_EQ(m_pane->manualDisplayMode(), TalvoAddPrintQueuePane::manualAddInvalidAddress);

    // A printer of another make: the menu offers the models; Continue needs one.
    typeAddress(u"10.77.61.22"_s);
    ASSERT_TRUE(processEventsUntil(
        [&] {
            return m_pane->manualDisplayMode() ==
                   TalvoAddPrintQueuePane::manualAddUnsupportedPrinterAtAddress;
        },
        15s));
    auto* menu = child<QComboBox>("printerModelSelectMenu");
    EXPECT_TRUE(menu->isVisible());
    EXPECT_TRUE(child<QLabel>("informationLabel")->text().contains(u"Acme 100"_s))
        << child<QLabel>("informationLabel")->text().toStdString();
    m_wizard->next();
    ASSERT_TRUE(waitForSheet("noQueueSheet", 2s)) << "the menu's title is no model";
    clickSheetButton("noQueueSheet", u"Select Printer"_s);
    processEventsFor(200ms);
    EXPECT_EQ(m_wizard->currentPage(), m_pane);

    // A model chosen with the keyboard, the menu never opened.
    menu->setFocus();
    QTest::keyClick(menu, Qt::Key_Down);
    EXPECT_EQ(menu->findText(u"Select a printer model…"_s), -1);
    EXPECT_EQ(menu->currentText(), u"Model 4000"_s);
    m_wizard->next();
    ASSERT_TRUE(waitForSheet("queueCreatedSheet"));
    const QVariantMap installed = installedPrinter();
    EXPECT_EQ(installed.value(kPrinterModelStrKey), u"Model 4000"_s);
    EXPECT_TRUE(installed.value(kCUPSPrinterURIKey).toString().contains(u"10.77.61.22"_s));
    EXPECT_TRUE(queues().contains(installed.value(kCUPSQueueNameKey).toString())) << queues().toStdString();
}

TEST_F(PaneTest, WalkupModeDisablesContinueAndThePrinterSelectedAtItsPanelGetsItsQueue)
{
    const PrinterSim walkup =
        startSim(s_world->sandbox, u"panel"_s, {u"model=Model 6500,address=10.77.61.23,reply=silent"_s},
                 {u"--walkup"_s, u"printer=10.77.61.23,to=10.77.61.10,select=0.5"_s});
    ASSERT_TRUE(walkup.ready()) << walkup.failure().toStdString();
    child<QAbstractButton>("walkupButton")->click();
    EXPECT_EQ(m_pane->selectPrinterMode(), TalvoAddPrintQueuePane::WalkupMode);
    EXPECT_FALSE(m_pane->isComplete()) << "Continue must be disabled in walkup mode";
    EXPECT_TRUE(m_pane->discoveryEngine()->walkupEnabled());

    ASSERT_TRUE(waitForSheet("queueCreatedSheet", 30s));
    EXPECT_EQ(installedPrinter().value(kIPAddrStrKey), u"10.77.61.23"_s);
    EXPECT_EQ(installedPrinter().value(kPrinterModelStrKey), u"Model 6500"_s);
    EXPECT_TRUE(queues().contains(installedPrinter().value(kCUPSQueueNameKey).toString()));
    visibleSheet("queueCreatedSheet")->accept();
    EXPECT_TRUE(processEventsUntil([&] { return m_wizard->currentPage() != m_pane; }, 5s));
}

// A host on the LAN that hears the discovery request and answers it with
// everything it can send: valid replies, replies that lie, garbage.
class Flooder
{
public:
    explicit Flooder(const NetworkSandbox& sandbox)
    {
        m_thread = std::jthread([this, &sandbox](std::stop_token stop) { run(sandbox, stop); });
    }
    bool listening() const { return m_listening; }
    uint64_t sent() const { return m_sent; }

private:
    void run(const NetworkSandbox& sandbox, const std::stop_token& stop)
    {
        const ScopedNetns inside(sandbox, u"flooder"_s);
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(broadcast::sorlenDiscoveryUDPPortNum);
        m_listening = ::bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
        sockaddr_in engine{};
        socklen_t length = sizeof engine;
        char request[1500];
        pollfd p{fd, POLLIN, 0};
        while (!stop.stop_requested()) {
            if (::poll(&p, 1, 100) == 1 &&
                ::recvfrom(fd, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&engine), &length) > 0)
                break;
        }
        const QByteArray valid =
            broadcast::buildReply(u"Model 4000"_s, u"10.77.61.30"_s, u"00:80:92:00:00:30"_s);
        const QByteArray lying = broadcast::buildReply(u"Model 4000"_s, u"10.77.61.99"_s, u"x"_s);
        QByteArray garbage(1500, '\0');
        auto* random = QRandomGenerator::global();
        while (!stop.stop_requested()) {
            for (int i = 0; i < 256; ++i) {
                const QByteArray* datagram = &garbage;
                if (i % 3 == 0)
                    datagram = &valid;
                else if (i % 3 == 1)
                    datagram = &lying;
                else
                    random->fillRange(reinterpret_cast<quint32*>(garbage.data()), garbage.size() / 4);
                const auto size = datagram == &garbage ? random->bounded(1500) : datagram->size();
                if (::sendto(fd, datagram->constData(), static_cast<size_t>(size), 0,
                             reinterpret_cast<const sockaddr*>(&engine), sizeof engine) > 0)
                    ++m_sent;
            }
        }
        ::close(fd);
    }
    std::atomic<bool> m_listening = false;
    std::atomic<uint64_t> m_sent = 0;
    std::jthread m_thread;
};

TEST_F(PaneTest, AFloodOnTheLanNeitherFreezesTheWindowNorStopsTheUser)
{
    ASSERT_TRUE(processEventsUntil([&] { return m_pane->printerList()->rowCount() >= 2; }, 15s));
    Flooder flooder(s_world->sandbox);
    ASSERT_TRUE(processEventsUntil([&] { return flooder.listening(); }, 2s));
    m_pane->discoveryEngine()->broadcast(); // the flooder hears where to send
    ASSERT_TRUE(processEventsUntil([&] { return flooder.sent() > 10'000; }, 5s));

    // How long the window goes without handling an event.
    QElapsedTimer sinceTick;
    qint64 longestStall = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout,
                     [&] { longestStall = std::max(longestStall, sinceTick.restart()); });
    sinceTick.start();
    ticker.start(5);

    child<QAbstractButton>("walkupButton")->click();
    EXPECT_TRUE(processEventsUntil([&] { return m_pane->discoveryEngine()->walkupEnabled(); }, 2s));
    child<QAbstractButton>("discoverButton")->click();
    EXPECT_EQ(m_pane->selectPrinterMode(), TalvoAddPrintQueuePane::DiscoveredMode);
    auto* view = child<QListView>("discPrintersListView");
    view->setCurrentIndex(
        m_pane->printerList()->index(static_cast<int>(listedAddresses().indexOf(u"10.77.61.20"_s))));
    m_wizard->next();
    ASSERT_TRUE(waitForSheet("queueCreatedSheet")) << "no queue while the LAN is flooded";
    EXPECT_EQ(installedPrinter().value(kIPAddrStrKey), u"10.77.61.20"_s);
    EXPECT_FALSE(listedAddresses().contains(u"10.77.61.99"_s))
        << "a reply that lied about its address was listed";
    std::cerr << "flood: " << flooder.sent() << " datagrams sent; longest stall of the window "
              << longestStall << " ms\n";
}

TEST_F(PaneTest, EnteringAgainRestartsTheSameEngineInDiscoveredMode)
{
    PrinterDiscoveryEngine* engine = m_pane->discoveryEngine();
    m_pane->setMode(TalvoAddPrintQueuePane::ManualMode);
    m_pane->prepareToExit();
    EXPECT_FALSE(engine->discoveryStarted());
    m_wizard->back();
    m_wizard->next();
    EXPECT_EQ(m_pane->discoveryEngine(), engine);
    EXPECT_TRUE(engine->discoveryStarted());
    EXPECT_EQ(m_pane->selectPrinterMode(), TalvoAddPrintQueuePane::DiscoveredMode);
}

TEST_F(PaneTest, SheetsHandTheirSettingsToTheEngine)
{
    child<QPushButton>("advancedButton")->click();
    auto* advanced = m_wizard->findChild<AddPrintQueueSettings*>();
    ASSERT_TRUE(advanced && advanced->isVisible());
    test::LogCapture log;
    QTest::keyClicks(advanced->gatewayTextField(), u"10.77.99.0"_s);
    QTest::keyClicks(advanced->subnetTextField(), u"255.255.255.0"_s);
    advanced->searchButton()->click();
    EXPECT_FALSE(advanced->isVisible());
    // The engine takes the network and asks it at once (and, with no route
    // there in the sandbox, drops it again).
    EXPECT_TRUE(test::processEventsUntil(
        [&] { return log.lines().contains(u"search target added: 10.77.99.255"_s); }, 2s))
        << log.lines().join(u'\n').toStdString();

    child<QPushButton>("snmpButton")->click();
    auto* snmp = m_wizard->findChild<SnmpStringsSheet*>();
    ASSERT_TRUE(snmp && snmp->isVisible());
    snmp->getTextField()->clear();
    QTest::keyClicks(snmp->getTextField(), u"backoffice"_s);
    snmp->okButton()->click();
    EXPECT_EQ(m_pane->discoveryEngine()->readCommunity(), u"backoffice"_s);
    QFile prefs(filePathForUserPrefs().value_or(QString()));
    ASSERT_TRUE(prefs.open(QIODevice::ReadOnly)) << prefs.fileName().toStdString();
    EXPECT_TRUE(prefs.readAll().contains("backoffice"));
}

// Every control a keyboard can reach, named for a screen reader.
void expectEveryFocusableControlNamed(const QWidget* root, const char* where)
{
    for (QWidget* widget : root->findChildren<QWidget*>()) {
        if (!widget->isVisible() || !widget->isEnabled() || widget->focusPolicy() == Qt::NoFocus)
            continue;
        QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
        EXPECT_TRUE(accessible && !accessible->text(QAccessible::Name).trimmed().isEmpty())
            << where << ": " << widget->metaObject()->className() << " \""
            << widget->objectName().toStdString() << "\" has no accessible name";
    }
}

// The whole way with the keyboard alone: Return through the welcome page,
// Tab and Space to a mode and back, the arrow keys to a printer, Return to
// create its queue, Return on the success sheet, Return to finish.
TEST_F(PaneTest, TheWizardWorksFromTheKeyboardAndNamesEveryControl)
{
    ASSERT_TRUE(processEventsUntil([&] { return m_pane->printerList()->rowCount() >= 1; }, 15s));
    m_wizard->restart();
    QApplication::setActiveWindow(m_wizard.get());
    const auto press = [this](int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QWidget* target = QApplication::focusWidget() ? QApplication::focusWidget() : m_wizard.get();
        QTest::keyClick(target, static_cast<Qt::Key>(key), modifiers);
        processEventsFor(50ms);
    };
    const auto tabTo = [&](const QWidget* wanted) {
        for (int i = 0; i < 30 && QApplication::focusWidget() != wanted; ++i)
            press(Qt::Key_Tab);
        return QApplication::focusWidget() == wanted;
    };
    expectEveryFocusableControlNamed(m_wizard.get(), "welcome page");
    press(Qt::Key_Return);
    ASSERT_EQ(m_wizard->currentPage(), m_pane) << "Return did not leave the welcome page";
    expectEveryFocusableControlNamed(m_wizard.get(), "discovered mode");
    EXPECT_FALSE(child("walkupButton")->accessibleDescription().isEmpty())
        << "the mode buttons explain themselves";

    ASSERT_TRUE(tabTo(child("manualButton")));
    press(Qt::Key_Space);
    EXPECT_EQ(m_pane->selectPrinterMode(), TalvoAddPrintQueuePane::ManualMode);
    EXPECT_EQ(QApplication::focusWidget(), child("addressTextField"));
    expectEveryFocusableControlNamed(m_wizard.get(), "manual mode");
    ASSERT_TRUE(tabTo(child("discoverButton")));
    press(Qt::Key_Space);
    EXPECT_EQ(m_pane->selectPrinterMode(), TalvoAddPrintQueuePane::DiscoveredMode);

    ASSERT_TRUE(tabTo(child("discPrintersListView")));
    press(Qt::Key_Down);
    ASSERT_TRUE(child<QListView>("discPrintersListView")->currentIndex().isValid());
    press(Qt::Key_Return);
    ASSERT_TRUE(waitForSheet("queueCreatedSheet")) << "Return on the list did not create the queue";
    QTest::keyClick(visibleSheet("queueCreatedSheet"), Qt::Key_Return);
    ASSERT_TRUE(processEventsUntil([&] { return m_wizard->currentPage() != m_pane; }, 5s));
    expectEveryFocusableControlNamed(m_wizard.get(), "closing page");
    EXPECT_FALSE(installedPrinter().isEmpty());
    press(Qt::Key_Return);
    EXPECT_TRUE(processEventsUntil([&] { return !m_wizard->isVisible(); }, 2s)) << "Return did not finish";
}

} // namespace
} // namespace talvo
