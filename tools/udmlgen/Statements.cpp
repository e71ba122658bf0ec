#include "Statements.h"

#include "platform/ErrorMessage.h"
#include "platform/repository/UdmlReader.h"

namespace udmlgen {
namespace {

enum class Head { None, Held, Passed };

// Heads are whole pieces of their own, so a name that merely starts like one is no head.
Head HeadOf(const std::string& piece) {
    if (piece == "\nDECLARE TABLE " || piece == "\nDECLARE COLUMN " || piece == "\nDECLARE TABLE KEY " ||
        piece.compare(0, 21, "\nDECLARE FOREIGN KEY ") == 0)
        return Head::Held;
    if (piece == "\nDECLARE CATALOG " || piece == "\nDECLARE SCHEMA " || piece == "\nDECLARE JOIN \"")
        return Head::Passed;
    return Head::None;
}

} // namespace

void StatementSplitter::putRecord(const char* bytes, size_t length) {
    std::string piece(bytes, length);
    const Head head = HeadOf(piece);
    if (head != Head::None) {
        Flush();
        m_holding = head == Head::Held || (m_holdAll && piece != "\nDECLARE JOIN \"");
    }
    if (m_holding)
        m_pieces.push_back(std::move(piece));
    else
        m_pass.putRecord(piece.data(), piece.size());
}

void StatementSplitter::Flush() {
    if (m_pieces.empty())
        return;
    Statement statement;
    statement.pieces.swap(m_pieces);
    std::string text;
    for (const std::string& piece : statement.pieces)
        text += piece;
    try {
        UdmlReader::ReadText(statement.declared, text, "the generated output", &statement.content);
        statement.declared.ForEachObject(
            [&statement](const ARpObject& object) { statement.objects.push_back(&object); });
    } catch (const ErrorMessage&) {
        statement.readable = false;
    }
    m_handler(statement);
}

void Forward(const Statement& statement, VirtualTable& sink) {
    for (const std::string& piece : statement.pieces)
        sink.putRecord(piece.data(), piece.size());
}

} // namespace udmlgen
