// The generator's pieces regrouped into whole statements, so that a host feature can look at one
// statement at a time (what it declares, what it says) while the walk goes on: memory stays at
// one statement, however large the source.
#pragma once

#include "platform/VirtualTable.h"
#include "platform/repository/ARpGateway.h"
#include "platform/repository/UdmlContent.h"

#include <functional>
#include <string>
#include <vector>

namespace udmlgen {

/// One statement as the generator wrote it, read back.
struct Statement {
    std::vector<std::string> pieces;
    std::vector<const ARpObject*> objects; // what it declares, the statement's own object first
    ARpGateway declared;
    UdmlContent content;
    bool readable = true; // false: the reader refused it (as a table tail without its head)
};

/// Holds the pieces of each table, column, table-key and foreign-key statement until the next
/// statement begins (or Flush), then hands the whole statement to `handler`. Catalog, schema and
/// join statements pass straight to `passThrough`: the generator decides those against the
/// repository itself, and a join may be withheld by `passThrough` while it is being written.
class StatementSplitter : public VirtualTable {
public:
    using Handler = std::function<void(Statement&)>;
    /// With `holdAll`, catalog and schema statements are handed over as well.
    StatementSplitter(VirtualTable& passThrough, Handler handler, bool holdAll = false)
        : m_pass(passThrough), m_handler(std::move(handler)), m_holdAll(holdAll) {}

    void putRecord(const char* bytes, size_t length) override;
    /// Hands over the statement being held, if any; call it when a request ends.
    void Flush();

private:
    VirtualTable& m_pass;
    Handler m_handler;
    std::vector<std::string> m_pieces;
    bool m_holdAll;
    bool m_holding = false;
};

/// Writes each piece of `statement` to `sink`.
void Forward(const Statement& statement, VirtualTable& sink);

} // namespace udmlgen
