// Named connection settings: a destinations file in INI form,
// $XDG_CONFIG_HOME/veltrane/destinations.ini (else ~/.config/...), or the
// file of --dest-file. A section [NAME] holds connection options by their
// long names without dashes (backend, host, port, client, user, lang,
// ashost, sysnr, gwserv, ...); never a password.
//
//   [dev]
//   backend = nwrfc
//   ashost = sap-dev.example.com
//   sysnr = 00
//   client = 100
//   user = JSMITH
#pragma once

#include <map>
#include <string>

#include "args.h"

namespace veltrane::cli {

// The default destinations file.
std::string defaultDestinationsFile();

// The entries of section `name` of the INI text. Unknown keys (not a
// connection option), a password key, bad lines and a missing section are
// UsageErrors naming `file` and the line.
std::map<std::string, std::string> destinationEntries(const std::string& text, const std::string& name,
                                                      const std::string& file);

// The arguments with the destination of --dest (if given) filled in where
// the command line gives nothing.
ParsedArgs withDestination(const ParsedArgs& args);

}  // namespace veltrane::cli
