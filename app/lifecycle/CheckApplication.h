#pragma once
// The check of one vendor application named by its bundle path, shared by the "checkpath"
// entry and the single-update prompt's launch: the update descriptor (Resources, then
// Contents, else the Info dictionary itself) picks the Sparkle check or the group check.
// Runs on the calling thread and blocks for the network.

#include "AppController.h"
#include "platform/system/Bundle.h"

#include <QString>

#include <optional>

namespace runmodes {

// Bundle identifiers of the vendor's applications begin with this.
inline const QString kVendorPrefix = QStringLiteral("com.velmora.");

// An update record, the up-to-date marker, or nullopt when the check failed.
std::optional<UpdateRecord> checkApplication(AppController& controller, const QString& bundlePath,
                                             const sys::Bundle& bundle);

} // namespace runmodes
