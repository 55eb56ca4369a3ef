// status: the daemon, its queue and its databases at a glance.
#pragma once

#include <string>

#include "platform/host/sql/database_engine.h"
#include "tools/ctl/context.h"
#include "tools/ctl/output.h"

namespace koli::ctl {

/// What is wrong with a database (KOLIDatabase), in one line.
std::string DatabaseFaultText(const host::DatabaseEngine& engine, int database,
                              const host::DatabaseFault& fault);

/// Adds what can be read of the databases, and counts their rows.  False: something is wrong with one of
/// them, or with the settings, and has been complained about if `complains`.
bool AddDatabases(const Context& context, bool complains, Record* record);

/// Adds the libraries that a server keeps, each with what can be read of it; the rest as above.
bool AddLibraries(const Context& context, Record* record, Section* libraries);

/// Shows what can be read.  Returns kExitDone, kExitNoDaemon when the daemon does not run, or kExitDatabase
/// when something is wrong with a database.
int Status(const Context& context);

/// The same until SIGINT or SIGTERM: drawn anew each second on a terminal, else a line, or an object,
/// whenever something has changed.  Rows are counted again only after a batch, and at most once a minute.
/// Returns kExitDone, or kExitFiles when nobody reads any more.
int StatusFollow(const Context& context);

/// Prints the same for a monitoring system, in Prometheus' text format 0.0.4; returns what Status does.
int StatusMetrics(const Context& context);

}  // namespace koli::ctl
