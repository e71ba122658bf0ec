// Fills a repository from UDML text: the statements this project writes, recognised by their
// heads and qualified names; the rest of each statement is skipped token by token up to its ";",
// and read into a UdmlContent when the caller asks for the content as well.
#pragma once

#include "platform/ErrorMessage.h"
#include "platform/repository/ARpGateway.h"
#include "platform/repository/UdmlContent.h"

#include <string>

class UdmlReader {
public:
    /// Reads the UDML file `path` into `gateway`. A statement it cannot read throws ErrorMessage
    /// naming the file, the line and what was expected; nothing after it is read.
    /// With `content`, what each statement says about its object is recorded there too.
    static void ReadFile(ARpGateway& gateway, const std::string& path, UdmlContent* content = nullptr);
    /// Reads only the content of the UDML file `path`, with the same failures as ReadFile.
    static void ReadContent(const std::string& path, UdmlContent& content);
    /// Reads UDML text (UTF-8); `sourceName` names it in messages.
    static void ReadText(ARpGateway& gateway, const std::string& text, const std::string& sourceName,
                         UdmlContent* content = nullptr);
};
