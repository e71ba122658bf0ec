// Reading UDML back into the repository: every statement kind as the generator writes it, with
// the raw texts that are not escaped; only a statement's head and qualified name decide what it
// declares; what the rest says is read as content; input that cannot be read is reported by file,
// line and column.
#include "platform/repository/UdmlReader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

// Each object as "type: part|part|...", in declaration order.
std::vector<std::string> Objects(const ARpGateway& gateway) {
    std::vector<std::string> out;
    gateway.ForEachObject([&out](const ARpObject& object) {
        std::wstring line = std::to_wstring(object.GetTypeId()) + L":";
        for (size_t i = 0; i < object.GetQualifiedName().size(); ++i)
            line += (i ? L"|" : L" ") + object.GetQualifiedName()[i];
        out.push_back(std::string(line.begin(), line.end()));
    });
    return out;
}

std::wstring ReadError(const std::string& text) {
    ARpGateway gateway;
    try {
        UdmlReader::ReadText(gateway, text, "in.udml");
    } catch (const ErrorMessage& error) {
        return error.Messages().empty() ? L"(no message)" : error.Messages().front();
    }
    return L"(read without error)";
}

// Statements as the generator writes them, names chosen to carry quotes, braces, blanks and
// non-ASCII letters into every raw and escaped position.
const std::string kCatalog = "\nDECLARE CATALOG \"Sales DB\".\"CRM\" AS \"CRM\";\n"
                             "\nDECLARE CATALOG \"Sales DB\".\"\"\"\"\"\" AS \"\"\"\";\n";
const std::string kSchema = "\nDECLARE SCHEMA \"Sales DB\".\"CRM\".\"EU \"\"x\"\"\" AS \"EU \"x\"\"\n"
                            "\tWS INPUTMSG{<m a=\"1\">\\}</m>};\n";
const std::string kTable =
    "\nDECLARE TABLE \"Sales DB\".\"CRM\".\"EU \"\"x\"\"\".\"Gr\xC3\xB6\xC3\x9F"
    "e {T}\" AS \"Gr\xC3\xB6\xC3\x9F"
    "e {T}\"\n HAVING( \n"
    "    \"Sales DB\".\"CRM\".\"EU \"\"x\"\"\".\"Gr\xC3\xB6\xC3\x9F"
    "e {T}\".\"ID\" AS \"ID\" TYPE INT PRECISION 10 SCALE 0 NOT NULLABLE VALUE TYPE  MAPPED COLUMN ''  "
    "MVLINK ''  DESCRIPTION {}, \n"
    "    \"Sales DB\".\"CRM\".\"EU \"\"x\"\"\".\"Gr\xC3\xB6\xC3\x9F"
    "e {T}\".\"Acc\"\"t, (Type)\" AS \"Acc\"t, (Type)\" EXTERNAL {Account.\\{Type\\}} TYPE VARCHAR PRECISION "
    "30 "
    "SCALE 0 NULLABLE VALUE TYPE  MANY TO ONE  MAPPED COLUMN 'it's ; )'  MVLINK 'o'k, )' \n PICKLIST (\n"
    "\"Sales DB\".\"CRM\".\"EU \"\"x\"\"\".\"Gr\xC3\xB6\xC3\x9F"
    "e {T}\".\"ID\",\n"
    "\"Sales DB\".\"CRM\".\"EU \"\"x\"\"\".\"Gr\xC3\xB6\xC3\x9F"
    "e {T}\".\"Acc\"\"t, (Type)\" )  INPUTPARAM  PROPERTIES ({EFF_CONTEXT_NAME} = {c,d}, {IS_HIDDEN} = "
    "{true})"
    " DESCRIPTION {a \\} ; b)}\n )"
    " NOT CACHEABLE DESCRIPTION {t;} URI 'CRM.it's;x' PROPERTIES ({EFF_FLEXFIELD_CODE} = {F})\n"
    "\tWS XSLT{<x/>}\n\tWS XSDSCHEMA{<s/>};\n";
// The join name itself holds '" AS "', and a quoted name in the expression holds a brace.
const std::string kJoin =
    "\nDECLARE JOIN \"E\" AS \"x_D\" AS \"E\" AS \"x_D\" EXTERNAL \"Emp\"Dept\" ON TABLES "
    "(\"AppDB\".\"C\".\"M\".\"Dept\"\"View\", \"AppDB\".\"C\".\"M\".\"EmpView\") AS {} MANY TO "
    "ONE\nEXTERNAL EXPRESSION {\"AppDB\".\"C\".\"M\".\"EmpView\".\"De}pt\" = "
    "\"AppDB\".\"C\".\"M\".\"Dept\"\"View\".\"Id\"\nAND\n"
    "\"AppDB\".\"C\".\"M\".\"EmpView\".\"L\" = \"AppDB\".\"C\".\"M\".\"Dept\"\"View\".\"L\"};";

std::string AllStatements() {
    return kCatalog + kSchema + kTable + kJoin;
}

TEST(UdmlReader, ReadsBackEveryStatementKindTheGeneratorWritesWithRawAndDoubledQuotes) {
    ARpGateway gateway;
    UdmlReader::ReadText(gateway, AllStatements(), "all.udml");
    const std::vector<std::string> expected = {
        "3025: Sales DB|CRM",
        "3025: Sales DB|\"\"",
        "3027: Sales DB|CRM|EU \"x\"",
        std::string("3001: Sales DB|CRM|EU \"x\"|Gr\xF6\xDF") + "e {T}",
        std::string("3003: Sales DB|CRM|EU \"x\"|Gr\xF6\xDF") + "e {T}|ID",
        std::string("3003: Sales DB|CRM|EU \"x\"|Gr\xF6\xDF") + "e {T}|Acc\"t, (Type)",
        "3011: AppDB|E\" AS \"x_D",
    };
    EXPECT_EQ(expected, Objects(gateway)); // wide letters narrowed unit by unit: ö and ß fit a byte

    const auto* join = dynamic_cast<const AComplexJoin*>(gateway.GetObject(gateway.ObjectCount()));
    ASSERT_NE(nullptr, join);
    EXPECT_EQ((QualifiedName{L"AppDB", L"C", L"M", L"Dept\"View"}), join->FirstTable());
    EXPECT_EQ((QualifiedName{L"AppDB", L"C", L"M", L"EmpView"}), join->SecondTable());
}

TEST(UdmlReader, OnlyHeadAndQualifiedNameDecideTheAsClausePropertiesAndPartCountAreSkipped) {
    // Keywords in any case, after a byte order mark; read twice, each object stays one.
    const std::string text =
        // No AS clause; a schema name of two parts; PROPERTIES where none are written.
        "\xEF\xBB\xBF  declare Catalog \"D\" . \"C\" ;\n"
        "DECLARE SCHEMA \"D\".\"S\" AS \"S\" PROPERTIES ({k} = {v});\n"
        // Display names other than the last part: a run of quotes, one ending in a quote, one
        // holding '", ('.
        "DECLARE SCHEMA \"D\".\"C\".\"X\" AS \"\"\"\";\n"
        "DECLARE TABLE \"D\".\"C\".\"X\".\"T\" AS \"a\"\"\n HAVING( \n"
        "    \"D\".\"C\".\"X\".\"T\".\"c\" AS \"(c\", d\" TYPE INT, \"D\".\"C\".\"X\".\"T\".\"d\"\n );\n"
        // A join whose AS differs from its name, and one with no AS or EXTERNAL.
        "DECLARE JOIN \"J\" AS \"K\" EXTERNAL \"E\" ON TABLES (\"D\".\"C\".\"X\".\"T\", \"D\".\"U\") AS {};"
        "declare join \"J2\" on tables(\"D\".\"U\",\"D\".\"C\".\"X\".\"T\");\n"
        // A column list cut short by the source: the statement ends at its ';'.
        "DECLARE TABLE \"D\".\"C\".\"X\".\"V\" AS \"V\"\n HAVING( \n"
        "    \"D\".\"C\".\"X\".\"V\".\"e\" AS \"e\" TYPE INT DESCRIPTION {};\n";
    ARpGateway gateway;
    UdmlReader::ReadText(gateway, text, "in.udml");
    UdmlReader::ReadText(gateway, text, "in.udml");
    EXPECT_EQ((std::vector<std::string>{"3025: D|C", "3027: D|S", "3027: D|C|X", "3001: D|C|X|T",
                                        "3003: D|C|X|T|c", "3003: D|C|X|T|d", "3011: D|J", "3011: D|J2",
                                        "3001: D|C|X|V", "3003: D|C|X|V|e"}),
              Objects(gateway));
}

TEST(UdmlReader, AStatementWithoutItsSemicolonRunsOnToTheNextSemicolonAsSkippedRest) {
    ARpGateway gateway;
    UdmlReader::ReadText(gateway,
                         "DECLARE SCHEMA \"D\".\"C\".\"S\" AS \"S\"\n"
                         "DECLARE CATALOG \"D\".\"C\" AS \"C\";\n"
                         "DECLARE CATALOG \"D\".\"E\" AS \"E\";\n",
                         "in.udml");
    EXPECT_EQ((std::vector<std::string>{"3027: D|C|S", "3025: D|E"}), Objects(gateway));
}

TEST(UdmlReader, AJoinDeclaredAgainKeepsOneJoinWithTheTablesOfItsFirstDeclaration) {
    ARpGateway gateway;
    UdmlReader::ReadText(gateway,
                         "DECLARE JOIN \"J\" AS \"J\" EXTERNAL \"E\" ON TABLES (\"D\".\"\".\"S\".\"A\", "
                         "\"D\".\"\".\"S\".\"B\") AS {} ;\n"
                         "DECLARE JOIN \"J\" AS \"J\" EXTERNAL \"F\" ON TABLES (\"D\".\"\".\"S\".\"A\", "
                         "\"D\".\"\".\"S\".\"C\") AS {} ;",
                         "in.udml");
    ASSERT_EQ(std::vector<std::string>{"3011: D|J"}, Objects(gateway));
    const auto* join = dynamic_cast<const AComplexJoin*>(gateway.GetObject(1));
    ASSERT_NE(nullptr, join);
    EXPECT_EQ((QualifiedName{L"D", L"", L"S", L"B"}), join->SecondTable());
    EXPECT_EQ(0u, gateway.FindComplexJoin({L"D", L"", L"S", L"A"}, {L"D", L"", L"S", L"C"}));
}

TEST(UdmlReader, UnreadableInputFailsNamingFileLineColumnAndWhatWasExpected) {
    struct Case {
        std::string text;
        std::wstring message;
    };
    const Case cases[] = {
        // The table bit cleared: only the statement's tail is written.
        {"\n URI 'CRM.Sales.Orders';\n",
         L"in.udml:2:2: expected DECLARE at the start of a statement, found 'URI'"},
        // Cut off by the end of the file, also inside a column list.
        {"\nDECLARE TABLE \"D\".\"C\".\"S\".\"T\" AS \"T\"",
         L"in.udml:2:37: expected ';' ending the DECLARE TABLE "
         L"statement begun on line 2, found end of input"},
        {"DECLARE TABLE \"D\".\"C\".\"S\".\"T\" AS \"T\"\n HAVING( \n    \"D\".\"C\".\"S\".\"T\".\"A\" AS "
         "\"A\" TYPE INT,\n",
         L"in.udml:4:1: expected ';' ending the DECLARE TABLE statement begun on line 1, found end of input"},
        {"DECLARE VIEW \"D\".\"V\";",
         L"in.udml:1:9: expected CATALOG, SCHEMA, TABLE, TABLE KEY, COLUMN, FOREIGN KEY "
         L"or JOIN after DECLARE, found 'VIEW'"},
        {"DECLARE CATALOG AS \"C\";", L"in.udml:1:17: expected a quoted catalog name, found 'AS'"},
        {"\n\nDECLARE CATALOG \"D\".\"C;\n", L"in.udml:3:21: unterminated quoted name (no closing '\"')"},
        {"DECLARE COLUMN \"D\".\"C\".\"S\".\"T\".\"A\" AS \"A\" DESCRIPTION {x\\};\n",
         L"in.udml:1:55: unterminated brace text (no closing '}')"},
        {"DECLARE JOIN \"A\" AS \"A\" EXTERNAL \"E\" ON TABLES (\"D\".\"C\".\"S\".\"T\");",
         L"in.udml:1:14: expected ON TABLES (<table>, <table>) after the join's names"},
        {"DECLARE CATALOG \"D\".\"C\" AS \"C\";\nDECLARE CATALOG \"D\".\"\xC3\x28\" AS \"x\";",
         L"in.udml:2:22: ill-formed UTF-8 (byte 0xC3)"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.message, ReadError(c.text)) << c.text;
}

// Every piece of content the generator writes, with a hostile display name, escaped braces and
// a lower-case keyword in front of the pieces it must not confuse (VALUE TYPE after TYPE).
TEST(UdmlReader, ContentOfEveryStatementKindIsRead) {
    const std::string text =
        "\nDECLARE TABLE \"D\".\"\".\"S\".\"T\" AS \"T\"\n HAVING( \n"
        "    \"D\".\"\".\"S\".\"T\".\"A\" AS \"A\" TYPE NUMERIC PRECISION 12 SCALE 2 not NULLABLE VALUE "
        "TYPE  MAPPED COLUMN ''  MVLINK ''  PROPERTIES ({IS_HIDDEN} = {true}) DESCRIPTION {x \\{y\\}}, \n"
        "    \"D\".\"\".\"S\".\"T\".\"B\" AS \"B\" TYPE VARCHAR PRECISION 5 SCALE 0 NULLABLE VALUE TYPE  "
        "MAPPED COLUMN ''  MVLINK ''  DESCRIPTION {}\n ) DESCRIPTION {People} PROPERTIES "
        "({EFF_FLEXFIELD_CODE} = {F});\n"
        "\nDECLARE TABLE KEY \"D\".\"\".\"S\".\"T\".\"PK\" AS \"PK\"\n HAVING ( "
        "\"D\".\"\".\"S\".\"T\".\"A\", \"D\".\"\".\"S\".\"T\".\"B\" );\n"
        "\nDECLARE FOREIGN KEY \"D\".\"\".\"S\".\"T\".\"FK\" AS \"FK\"\n HAVING ( "
        "\"D\".\"\".\"S\".\"T\".\"B\" )\n REFERENCES \"D\".\"\".\"S\".\"U\".\"PK\"\"U\";\n"
        "\nDECLARE COLUMN \"D\".\"\".\"S\".\"T\".\"C\" AS \"C\" TYPE INT PRECISION -1 SCALE 0 NULLABLE "
        "VALUE TYPE  MAPPED COLUMN ''  MVLINK ''  DESCRIPTION {};\n";
    ARpGateway gateway;
    UdmlContent content;
    UdmlReader::ReadText(gateway, text, "in.udml", &content);
    auto fields = [&content](TypeID type, const std::string& last) {
        const UdmlFields* found =
            content.Find(type, {L"D", L"", L"S", L"T", std::wstring(last.begin(), last.end())});
        std::string out;
        for (const auto& [piece, value] : found ? *found : UdmlFields{})
            out += piece + "=" + value + ";";
        return out;
    };
    EXPECT_EQ("description=x {y};nullable=NOT NULLABLE;precision=12;properties=IS_HIDDEN = "
              "true;scale=2;type=NUMERIC;",
              fields(kTIDAColumn, "A"));
    EXPECT_EQ("description=;nullable=NULLABLE;precision=-1;scale=0;type=INT;", fields(kTIDAColumn, "C"));
    EXPECT_EQ("columns=\"D\".\"\".\"S\".\"T\".\"A\", \"D\".\"\".\"S\".\"T\".\"B\";",
              fields(kTIDATableKey, "PK"));
    EXPECT_EQ("columns=\"D\".\"\".\"S\".\"T\".\"B\";references=\"D\".\"\".\"S\".\"U\".\"PK\"\"U\";",
              fields(kTIDAForeignKey, "FK"));
    const UdmlFields* table = content.Find(kTIDATable, {L"D", L"", L"S", L"T"});
    ASSERT_NE(nullptr, table);
    EXPECT_EQ((UdmlFields{{"description", "People"}, {"properties", "EFF_FLEXFIELD_CODE = F"}}), *table);
}

TEST(UdmlReader, FilesAreReadOrTheOsReasonIsGiven) {
    for (const char* path : {"/nonexistent/dir/x.udml", "/"}) {
        ARpGateway gateway;
        try {
            UdmlReader::ReadFile(gateway, path);
            ADD_FAILURE() << "no error for " << path;
        } catch (const ErrorMessage& error) {
            EXPECT_EQ(std::string("cannot read ") + path +
                          (path[1] ? ": No such file or directory" : ": Is a directory"),
                      error.what());
        }
    }
}

TEST(UdmlReader, PathologicalRawTextsStayLinear) {
    auto repeat = [](const std::string& piece, size_t times) {
        std::string out;
        for (size_t i = 0; i < times; ++i)
            out += piece;
        return out;
    };
    const std::vector<std::string> inputs = {
        // A join name that repeats around AS ever again without ever reaching EXTERNAL.
        "DECLARE JOIN \"" + repeat("a\" AS \"", 60000) + "a\" EXTERNAL",
        // A view-link text full of quotes that never ends.
        "DECLARE COLUMN \"D\".\"C\".\"S\".\"T\".\"A\" AS \"A\" MVLINK '" + repeat("' x", 100000),
        // Display names and URIs that nothing the generator writes ever follows.
        repeat("DECLARE CATALOG \"D\".\"C\" AS \"x\" y;", 30000),
        repeat("DECLARE TABLE \"D\".\"C\".\"S\".\"T\" URI 'u';", 30000),
    };
    for (const std::string& input : inputs) {
        const auto start = std::chrono::steady_clock::now();
        ARpGateway gateway;
        try {
            UdmlReader::ReadText(gateway, input, "big");
        } catch (const ErrorMessage&) {
        }
        const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(seconds, 5.0) << input.substr(0, 40);
    }
}

} // namespace
