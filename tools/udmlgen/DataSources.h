// `udmlgen sources`: what the ODBC driver manager knows, as `odbcinst -q` shows it.
#pragma once

namespace udmlgen {

/// Lists the data sources (with their drivers) and the drivers on standard output, marking the
/// drivers udmlgen is tested with. Returns the exit status.
int ListDataSources();

} // namespace udmlgen
