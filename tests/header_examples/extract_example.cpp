// Turns the usage example of a header's opening comment into a program, so
// that the example is compiled against the library and run by CTest.
//
//   extract_example <header> <include name> <output .cpp>
//
// The example is the block of `//   ` lines after the line `// Example:`
// (blank `//` lines may separate its paragraphs). Code that starts with
// `struct`, `class`, `union`, `enum`, `namespace`, `template`, `extern` or
// `#` at the example's left margin goes to namespace scope, with the lines
// that belong to it; everything else becomes the body of one function. A
// one-line statement whose trailing comment starts with an expected value
// is checked:
//
//   expr;               // "text" | 'c' | 42 | -1.5 | 0xFF | true | false
//   Type name = expr;   // the same, compared with `name`
//   expr;               // throws some::exception_class
//
// after which the comment may go on as prose following a "," or ";". Any
// other trailing comment is prose. `#line` directives make compiler errors
// and failed checks name the header's own lines.
#include <fstream>
#include <iostream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(const std::string& where, const std::string& what)
{
    std::cerr << where << ": " << what << '\n';
    std::exit(1);
}

// The example of the header's opening comment (the leading `//` lines): its
// lines in the header, without the comment introducer and margin.
std::vector<std::pair<int, std::string>> readExample(const std::string& path)
{
    std::ifstream in(path);
    if (!in)
        fail(path, "cannot be read");
    std::vector<std::pair<int, std::string>> example;
    std::string line;
    bool inside = false, found = false;
    for (int number = 1; std::getline(in, line) && line.starts_with("//"); ++number) {
        if (line == "// Example:") {
            if (found)
                fail(path + ":" + std::to_string(number), "a header has one example");
            inside = found = true;
        } else if (inside && (line == "//" || line.starts_with("//   "))) {
            example.emplace_back(number, line.size() > 5 ? line.substr(5) : "");
        } else {
            inside = false;
        }
    }
    while (!example.empty() && example.back().second.empty())
        example.pop_back();
    if (example.empty())
        fail(path, "no example after a line \"// Example:\" in the opening comment");
    return example;
}

// Splits `line` at its trailing `//` comment, skipping string and character
// literals; the comment is empty when there is none.
std::pair<std::string, std::string> splitComment(const std::string& line)
{
    static const std::regex split(R"(^((?:"(?:[^"\\]|\\.)*"?|'(?:[^'\\]|\\.)*'?|[^"'/]|/(?!/))*?) *(?://(.*))?$)");
    std::smatch m;
    std::regex_match(line, m, split);
    return {m[1], m[2]};
}

// The checked form of the one-line statement `code` when its trailing
// `comment` states an expected value or exception; empty when it does not.
std::string checkedStatement(const std::string& code, const std::string& comment, bool statementStart,
                             const std::string& where)
{
    static const std::regex thrown(R"(^\s*throws ([A-Za-z_][\w:]*)\s*([,;].*)?$)");
    static const std::regex literal(
        R"(^\s*(L?"(?:[^"\\]|\\.)*"|'(?:[^'\\]|\\.)+'|-?(?:0[xX][0-9a-fA-F]+|\d+(?:\.\d+)?(?:[eE][+-]?\d+)?)[uUlL]*)"
        R"(|true|false|nullptr)\s*([,;].*)?$)");
    static const std::regex declaration(
        R"(^(?:\s*(?:const\s+)?[A-Za-z_][\w:]*(?:<[^;]*>)?(?:\s*[*&]+\s*|\s+))([A-Za-z_]\w*)\s*[=({].*;$)");
    static const std::regex statement(R"(^(\s*)(.*);$)");
    std::smatch m;
    const bool throws = std::regex_match(comment, m, thrown);
    if (!throws && !std::regex_match(comment, m, literal))
        return "";
    const std::string expected = m[1];
    if (!statementStart)
        fail(where, "an expected value needs a one-line statement");
    if (std::regex_match(code, m, declaration)) {
        if (throws)
            fail(where, "a declaration cannot be expected to throw");
        return code + " uvt_example::expect(" + m[1].str() + ", " + expected + ", __FILE__, __LINE__);";
    }
    if (!std::regex_match(code, m, statement))
        fail(where, "an expected value needs a one-line statement ending in ';'");
    if (throws)
        return m[1].str() + "uvt_example::expect_throw<" + expected + ">([&] { (void)(" + m[2].str() +
               "); }, __FILE__, __LINE__);";
    return m[1].str() + "uvt_example::expect(" + m[2].str() + ", " + expected + ", __FILE__, __LINE__);";
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        fail(argv[0], "usage: extract_example <header> <include name> <output .cpp>");
    const std::string header = argv[1];
    std::ostringstream outside, body;
    bool chunkOutside = false;
    bool statementStart = true; // the previous code line ended a statement
    static const std::regex opener(R"(^(struct|class|union|enum|namespace|template|extern)\b.*|^#.*)");
    for (const auto& [number, line] : readExample(header)) {
        auto [code, comment] = splitComment(line);
        if (!code.empty() && code[0] != ' ' && code[0] != '}') // at the example's left margin
            chunkOutside = std::regex_match(code, opener);
        std::string text =
            chunkOutside ? "" : checkedStatement(code, comment, statementStart, header + ":" + std::to_string(number));
        if (!code.empty())
            statementStart = code.ends_with(';') || code.ends_with('{') || code.ends_with('}');
        (chunkOutside ? outside : body) << "#line " << number << " \"" << header << "\"\n"
                                        << (text.empty() ? line : text) << '\n';
    }

    std::ofstream out(argv[3]);
    out << "// Generated from " << header << " by extract_example; do not edit.\n"
        << "#include <" << argv[2] << ">  // first: the header stands on its own\n"
        << "#include <uvt/all>\n"
        << "#include \"example_check.h\"\n\n"
        << outside.str() << "\nnamespace {\nvoid example()\n{\n"
        << body.str() << "}\n} // namespace\n\nint main() { return uvt_example::run(example); }\n";
    return out ? 0 : 1;
}
