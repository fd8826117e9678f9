#pragma once

// The test page the closing page prints on the new queue: the command line of
// /usr/bin/lp and the page to send. Pure functions, so the argument vector is
// checked without a scheduler.
//
//     QProcess lp;
//     lp.start(QString::fromLatin1(talvo::kLpProgram),
//              talvo::testPageArguments(queue, talvo::testPageFile()));

#include <QString>
#include <QStringList>

namespace talvo {

inline constexpr char kLpProgram[] = "/usr/bin/lp";
// The CUPS test page (package cups-common); preferred when installed.
inline constexpr char kCupsTestPageFile[] = "/usr/share/cups/data/testprint";
// The page shipped in the resources folder for machines without it.
inline constexpr char kFallbackTestPageName[] = "TestPage.ps";

// {"-d", queue, "-t", "Test Page", file}: the job goes to `queue` only, under
// a title the user recognises in the queue's job list.
QStringList testPageArguments(const QString& queue, const QString& file);

// kCupsTestPageFile when it exists, else <pathForPluginResources()>/TestPage.ps.
QString testPageFile();

} // namespace talvo
