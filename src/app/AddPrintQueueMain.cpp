// talvo-add-print-queue: the installer wizard. A welcome page, the pane that
// finds the printer and creates its queue, and a closing page that shows the
// queue created.

#include "foundation/Settings.h"
#include "pane/AddPrintQueueWizard.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QTextStream>

#include <memory>
#include <string_view>

using namespace Qt::StringLiterals;

namespace {

// --help and --version print text and end: they must work without a display.
bool printsOnly(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument(argv[i]);
        if (argument == "--version" || argument == "--help" || argument == "-h" || argument == "--help-all")
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    const std::unique_ptr<QCoreApplication> app = printsOnly(argc, argv)
                                                      ? std::make_unique<QCoreApplication>(argc, argv)
                                                      : std::make_unique<QApplication>(argc, argv);
    QApplication::setApplicationName(u"talvo-add-print-queue"_s);
    QApplication::setDesktopFileName(u"talvo-add-print-queue"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Finds your Talvo printer and creates its print queue."_s);
    parser.addHelpOption();
    // Not addVersionOption(): it would take -v, which is --verbose here.
    const QCommandLineOption version(u"version"_s, u"Shows the version."_s);
    const QCommandLineOption resources(u"resources"_s, u"The resources folder (settings, texts, icons)."_s,
                                       u"DIR"_s);
    const QCommandLineOption usbBackend(u"usb-backend"_s,
                                        u"The CUPS usb backend to list USB printers with."_s, u"PATH"_s);
    const QCommandLineOption verbose({u"v"_s, u"verbose"_s}, u"Log what the setup does on standard error."_s);
    parser.addOptions({version, resources, usbBackend, verbose});
    parser.process(*app);

    if (parser.isSet(resources))
        talvo::setPluginResourcesPath(parser.value(resources));
    if (parser.isSet(version)) {
        QTextStream(stdout) << "talvo-add-print-queue "
                            << talvo::getVersionInfoString().value_or(u"(unknown)"_s) << Qt::endl;
        return 0;
    }
    // Warnings always reach standard error; the step-by-step lines on request.
    if (!parser.isSet(verbose))
        QLoggingCategory::setFilterRules(u"talvo.*.debug=false\ntalvo.*.info=false"_s);
    talvo::TalvoAddPrintQueuePane::Options options;
    options.usbBackendPath = parser.value(usbBackend);
    const talvo::AddPrintQueueWizard made = talvo::makeAddPrintQueueWizard(options);
    made.wizard->show();
    return QApplication::exec();
}
