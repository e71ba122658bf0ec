// The name selection rules that every import source shares: ODBC search patterns and the
// table-type selector.
#pragma once

#include "platform/WyString.h"

#include <cstdint>

/// ODBC search pattern: "%" matches any sequence, "_" any one character, "\" makes the next
/// character literal (a "\" at the very end stands for itself); case-sensitive. The empty pattern
/// matches every name.
bool MatchesSearchPattern(const WyString& pattern, const WyString& name);

/// The table-type selector: bit 0x01 every type not named below (TABLE, VIEW and the rest),
/// 0x02 SYSTEM TABLE and SYSTEM VIEW, 0x04 SYNONYM and ALIAS, 0x08 GLOBAL TEMPORARY and LOCAL
/// TEMPORARY, compared ignoring case; 0 selects every type.
bool TableTypeSelected(uint8_t selector, const WyString& tableType);
