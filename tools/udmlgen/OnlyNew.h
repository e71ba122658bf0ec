// --only-new: the generator's statements filtered down to the objects the repository lacks.
#pragma once

#include "Statements.h"

#include <string>
#include <vector>

namespace udmlgen {

/// Passes on whole statements of objects the repository does not hold (a new table with its
/// columns, a new key or foreign key), drops those it holds, and keeps the names of the new
/// columns of tables it holds: those are written afterwards by the generator's own column
/// request (RequestNewColumns), so their text is the generator's.
class OnlyNewFilter {
public:
    OnlyNewFilter(VirtualTable& output, const ARpGateway& repository);
    VirtualTable& Sink() { return m_splitter; }
    /// Call when the walk ends: hands over the last statement.
    void Flush() { m_splitter.Flush(); }

    /// A column to request: the source names of its catalog, schema and table, and its own.
    struct Column {
        WyString catalog, schema, table, column;
    };
    const std::vector<Column>& NewColumns() const { return m_columns; }

private:
    void Take(Statement& statement);
    bool Holds(const ARpObject& object) const;

    VirtualTable& m_output;
    const ARpGateway& m_repository;
    StatementSplitter m_splitter;
    std::vector<Column> m_columns;
};

} // namespace udmlgen
