// The installer platform in a real wizard: when a pane is entered and asked to
// leave, how it leaves by itself, the Continue button, the closing page with
// and without an installed printer, and its test page sent with lp to a
// private scheduler.
#include "fixtures/CupsServer.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"
#include "installer/ClosingPage.h"
#include "installer/InstallerPane.h"
#include "installer/InstallerWizard.h"
#include "installer/TestPage.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QLabel>
#include <QPushButton>

#include <gtest/gtest.h>

#include <functional>

using namespace Qt::StringLiterals;
using talvo::InstallerPane;

namespace {

// Records entries and exit questions; leaveFromInside calls gotoNextPane
// from shouldExitPane.
class RecordingPane : public InstallerPane
{
public:
    QString title() const override { return u"Recording"_s; }
    void didEnterPane(Direction direction) override { entries.append(direction); }
    bool shouldExitPane(Direction) override
    {
        if (leaveFromInside)
            gotoNextPane();
        ++exitQuestions;
        return answer;
    }

    QList<Direction> entries;
    int exitQuestions = 0;
    bool answer = false, leaveFromInside = false;
};

bool waitUntil(const std::function<bool()>& done, int milliseconds = 10000)
{
    QDeadlineTimer deadline(milliseconds);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return done();
}

QVariantMap installedPrinter(const QString& queue)
{
    return {{talvo::kCUPSQueueNameKey, queue},
            {talvo::kPrinterModelStrKey, u"Model 4000"_s},
            {talvo::kCUPSPrinterURIKey, u"lpd://10.0.0.5/"_s}};
}

// Welcome page, the pane, the closing page.
struct WizardWithPane
{
    talvo::InstallerWizard wizard;
    RecordingPane* pane = new RecordingPane;
    int paneId = wizard.addPane(pane);
    int closingId = wizard.addClosingPage();

    WizardWithPane() { wizard.restart(); }
};

TEST(InstallerPaneTest, EntersAsksLeavesAndShowsTheClosingPage)
{
    WizardWithPane w;
    w.wizard.show();
    const auto expectClosingPage = [&w](bool installed) {
        ASSERT_EQ(w.wizard.currentId(), w.closingId);
        const auto* closing = qobject_cast<talvo::ClosingPage*>(w.wizard.currentPage());
        EXPECT_EQ(closing->messageLabel()->text(),
                  installed ? w.wizard.texts().closingText : w.wizard.texts().closingNoQueueText);
        EXPECT_EQ(closing->testPageButton()->isVisible(), installed);
        EXPECT_EQ(closing->queueNameField()->isVisible(), installed);
        EXPECT_EQ(closing->queueNameField()->text() + closing->printerModelField()->text() +
                      closing->deviceUriField()->text(),
                  installed ? u"Talvo_Model_4000Model 4000lpd://10.0.0.5/"_s : QString());
    };
    w.wizard.next();
    ASSERT_EQ(w.wizard.currentId(), w.paneId);
    EXPECT_EQ(w.pane->entries, QList{InstallerPane::Direction::Forward});
    EXPECT_EQ(w.wizard.currentPage()->QWizardPage::title(), u"Recording"_s);
    EXPECT_EQ(w.pane->sharedDictionary(), &w.wizard.sharedDictionary());

    // Continue is refused: the wizard stays.
    w.wizard.next();
    EXPECT_EQ(w.wizard.currentId(), w.paneId);
    EXPECT_EQ(w.pane->exitQuestions, 1);

    // The pane leaves by itself, with Continue disabled and without being asked.
    w.pane->setNextEnabled(false);
    EXPECT_FALSE(w.wizard.button(QWizard::NextButton)->isEnabled());
    w.pane->gotoNextPane();
    EXPECT_EQ(w.pane->exitQuestions, 1);
    expectClosingPage(false);

    // Back from the closing page is an entry from behind; then Continue is
    // accepted, and the closing page shows the printer the pane installed.
    w.pane->setNextEnabled(true);
    w.wizard.back();
    ASSERT_EQ(w.wizard.currentId(), w.paneId);
    EXPECT_EQ(w.pane->entries.last(), InstallerPane::Direction::Backward);
    EXPECT_TRUE(w.wizard.button(QWizard::NextButton)->isEnabled());
    w.pane->sharedDictionary()->insert(talvo::kInstalledPrinterDictKey,
                                       installedPrinter(u"Talvo_Model_4000"_s));
    w.pane->answer = true;
    w.wizard.next();
    EXPECT_EQ(w.pane->exitQuestions, 2);
    expectClosingPage(true);
}

TEST(InstallerPaneTest, GotoNextPaneFromShouldExitPaneMovesOnceValidationEnds)
{
    WizardWithPane w;
    w.pane->leaveFromInside = true;
    w.wizard.next();
    w.wizard.next();
    EXPECT_EQ(w.wizard.currentId(), w.paneId);
    EXPECT_TRUE(waitUntil([&] { return w.wizard.currentId() == w.closingId; }, 2000));
    EXPECT_EQ(w.pane->exitQuestions, 1);

    RecordingPane outside;
    EXPECT_EQ(outside.sharedDictionary(), nullptr);
    outside.gotoNextPane(); // nothing to move: no wizard
}

// The button's lp run against a real scheduler: a queue that accepts jobs gets
// the page (held there, the queue being stopped); an unknown queue gives lp's
// own error text.
TEST(ClosingPageTest, TestPageButtonSubmitsAJobWithLp)
{
    // The page shipped for machines without the CUPS one.
    QFile shipped(QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/TestPage.ps"));
    ASSERT_TRUE(shipped.open(QIODevice::ReadOnly));
    const QByteArray postScript = shipped.readAll();
    EXPECT_TRUE(postScript.startsWith("%!PS-Adobe-3.0\n") && postScript.contains("\nshowpage\n"));

    talvo::test::CupsServer cups;
    ASSERT_TRUE(cups.ready()) << cups.failureMessage().toStdString();
    qputenv("CUPS_SERVER", cups.socketPath().toUtf8());
    talvo::setPluginResourcesPath(QStringLiteral(TALVO_BUILD_RESOURCE_DIR));
    const QString host = cups.socketPath();
    for (const QStringList& command : {QStringList{u"lpadmin"_s, u"-h"_s, host, u"-p"_s, u"Office"_s, u"-E"_s,
                                                   u"-v"_s, u"lpd://10.0.0.5/"_s},
                                       QStringList{u"cupsdisable"_s, u"-h"_s, host, u"Office"_s}}) {
        const auto result = talvo::test::Subprocess::run(command);
        ASSERT_TRUE(result.succeeded()) << result.describe().toStdString();
    }

    const talvo::WizardTexts texts;
    for (const QString& queue : {u"Office"_s, u"Missing"_s}) {
        SCOPED_TRACE(queue.toStdString());
        const bool exists = queue == u"Office"_s;
        talvo::ClosingPage page(texts);
        page.showInstalledPrinter(installedPrinter(queue));
        QList<bool> outcomes;
        QObject::connect(&page, &talvo::ClosingPage::testPageFinished,
                         [&](bool sent) { outcomes.append(sent); });
        page.testPageButton()->click();
        EXPECT_FALSE(page.testPageButton()->isEnabled()); // one job per click
        ASSERT_TRUE(waitUntil([&] { return !outcomes.isEmpty(); }));
        EXPECT_EQ(outcomes, QList{exists});
        EXPECT_TRUE(page.testPageButton()->isEnabled());
        if (exists) {
            EXPECT_EQ(page.statusLabel()->text(), texts.testPageSent.arg(u"Office"_s));
            const auto jobs = cups.lpstat({u"-o"_s, u"Office"_s});
            EXPECT_TRUE(jobs.standardOutput.startsWith("Office-1 ")) << jobs.describe().toStdString();
        } else {
            const QString prefix = texts.testPageFailed.arg(QString());
            EXPECT_TRUE(page.statusLabel()->text().startsWith(prefix));
            EXPECT_GT(page.statusLabel()->text().size(), prefix.size() + 5) << "lp's error text is shown";
        }
    }
    qunsetenv("CUPS_SERVER");
}

} // namespace
