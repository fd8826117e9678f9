#pragma once

// Instantiating a model's PPD for one printer: decompressed with gunzip, the
// defaults of its installable options set from the printer's own SNMP
// answers (PpdRewrite.h), and written in its own encoding to a private
// temporary file for lpadmin to install. The file is removed when the result
// goes, unless the caller takes it over with release().
//
//     const talvo::InstantiatedPPD ppd = talvo::instantiatePPD(*ppdPath, address, community, stop);
//     if (!ppd.ok())
//         return fail(ppd.error);
//     runProcess({u"lpadmin"_s, ..., u"-P"_s, ppd.path, ...});
//     // leaving the scope removes the file

#include "queue/PpdRewrite.h"

#include <QString>

#include <stop_token>

namespace talvo {

struct InstantiatedPPD
{
    QString path;  // the PPD file lpadmin is to install; empty on failure
    QString error; // why there is none, for the user
    bool ok() const { return !path.isEmpty(); }

    InstantiatedPPD() = default;
    explicit InstantiatedPPD(QString file) : path(std::move(file)) {}
    static InstantiatedPPD failure(QString why);
    InstantiatedPPD(InstantiatedPPD&& other) noexcept;
    InstantiatedPPD& operator=(InstantiatedPPD&& other) noexcept;
    InstantiatedPPD(const InstantiatedPPD&) = delete;
    InstantiatedPPD& operator=(const InstantiatedPPD&) = delete;
    // Removes the file.
    ~InstantiatedPPD();

    // Keeps the file for the caller, who removes it; returns its path.
    QString release();
};

// The PPD at `ppdPath` (gzip-compressed) for the printer at `printerAddress`:
// a PPD with SNMP query lines becomes a "ppd_instantiated_*" file in the
// temporary folder, asked with `doSNMPQueryOn` (one version code for all the
// options of the printer), any other a "ppd_unzipped_*" copy. Errors: the
// file cannot be decompressed or written, its InstallableOptions group is
// malformed, or `stop` was requested (the error is then "stopped"). Blocks
// for the SNMP queries: up to 3 s each for a printer that does not answer.
InstantiatedPPD instantiatePPD(const QString& ppdPath, const QString& printerAddress,
                               const QString& community, std::stop_token stop = {});

// The same with the SNMP answers given by `valueForOid`.
InstantiatedPPD instantiatePPD(const QString& ppdPath, const ppd::ValueForOid& valueForOid,
                               std::stop_token stop = {});

} // namespace talvo
