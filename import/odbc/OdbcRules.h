// The ODBC source's rules that need no driver: the mapping of ODBC data types onto server data
// types, and the texts of connection strings (credentials appended, passwords hidden in messages).
#pragma once

#include "import/MIRecords.h"
#include "platform/WyString.h"

/// True when `typeName` contains the word "unsigned", ignoring case, with no letter or digit
/// directly before or after it ("INT UNSIGNED", "tinyint(3) unsigned"; not "unsignedint").
bool TypeNameSaysUnsigned(const WyString& typeName);

/// The server data type of an ODBC DATA_TYPE code (signed, as SQLColumns reports it). The integer
/// types become their unsigned forms when TypeNameSaysUnsigned(typeName); unknown codes WyUnknown.
WyDataType MapOdbcDataType(int dataType, const WyString& typeName);

/// `value` as it may stand in a connection string: in braces, with every "}" doubled, when it
/// holds ";", "{", "}" or a blank; unchanged otherwise.
WyString QuoteConnectionValue(const WyString& value);

/// `source` with ";UID=user" appended when `user` is not empty and ";PWD=password" when
/// `password` is not empty, each value quoted by QuoteConnectionValue. Where `source` names
/// psqlODBC as its driver, which reads UID without braces, the user name goes unquoted, and one
/// that holds ";" or begins with "{" is refused with an ErrorMessage that says so.
WyString AppendCredentials(const WyString& source, const WyString& user, const WyString& password);

/// `connection` fit to show in a message: the value of every PWD or PASSWORD attribute (any
/// letter case) replaced by "***".
WyString HidePasswords(const WyString& connection);
