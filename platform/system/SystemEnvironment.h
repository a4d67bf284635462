#pragma once
// The contract that lets the program run on a Mac-like tree without touching the real
// system. Every machine-wide absolute path the program forms goes through rooted().
//
//   VELMORA_SYSROOT        prefix of machine-wide paths and system tools (default: "")
//   HOME                   the user's home; user domain is $HOME/Library/..., Trash $HOME/.Trash
//   TMPDIR                 the temporary folder (default /tmp)
//   VELMORA_UPDATE_SERVER  scheme://host[:port] of the vendor update server, no trailing slash
//   VELMORA_WEB_SITE       the vendor web site's base address, with trailing "/"
//   VELMORA_CA_FILE        PEM file of extra certificate authorities for HTTPS
//
// Read on every call (tests change the environment between cases); thread-safe.

#include <QString>

namespace sys {

QString systemRoot();                        // without trailing "/"; "" for the real root
QString rooted(const QString& absolutePath); // systemRoot() + absolutePath ("/Volumes" -> "<root>/Volumes")
QString homeDirectory();
QString temporaryDirectory();                // with a trailing "/", as NSTemporaryDirectory() gives it
QString updateServerBase();                  // default "https://updates.velmora.com"
QString webSiteBase();                       // default "https://www.velmora.com/"
QString webSiteDomain();                     // host part of webSiteBase() less "www.", e.g. "velmora.com"
QString extraCertificateAuthorities();       // "" when none
// ProductVersion of <root>/System/Library/CoreServices/SystemVersion.plist; "0.0.0" when missing.
QString productVersion();

} // namespace sys
