// A recursive-descent parser of predicate format strings. Keywords are
// case-insensitive; placeholders take the next argument (%K as a key path).
// Every fault throws PredicateSyntaxError with the offset where it was seen,
// and nesting is bounded so that hostile input cannot exhaust the stack.
#include <cctype>
#include <cstring>

#include "objectgraph/predicate.h"

namespace lumeo {

namespace {

constexpr int kMaxDepth = 100;
constexpr int kMaxSubqueryDepth = 4;

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

bool isIdentStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == '#' || c == '@';
}
bool isIdentChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

class Parser {
 public:
  Parser(std::string_view text, const std::vector<PredicateValue>& args) : s_(text), args_(args) {}

  PredicateNodePtr parseAll() {
    PredicateNodePtr node = parseOr();
    skipSpace();
    if (pos_ != s_.size()) fail("unexpected text '" + std::string(s_.substr(pos_, 12)) + "'");
    return node;
  }

 private:
  [[noreturn]] void fail(const std::string& message) const { throw PredicateSyntaxError(message, pos_); }
  [[noreturn]] void failAt(const std::string& message, std::size_t at) const {
    throw PredicateSyntaxError(message, at);
  }

  void skipSpace() {
    while (pos_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[pos_]))) ++pos_;
  }
  bool peekChar(char c) {
    skipSpace();
    return pos_ < s_.size() && s_[pos_] == c;
  }
  bool acceptText(std::string_view t) {
    skipSpace();
    if (s_.substr(pos_, t.size()) == t) {
      pos_ += t.size();
      return true;
    }
    return false;
  }
  void expectChar(char c) {
    if (!peekChar(c)) fail(std::string("expected '") + c + "'");
    ++pos_;
  }
  // The word at the cursor, without moving.
  std::string_view peekWord() {
    skipSpace();
    std::size_t end = pos_;
    while (end < s_.size() && (std::isalpha(static_cast<unsigned char>(s_[end])))) ++end;
    return s_.substr(pos_, end - pos_);
  }
  bool acceptKeyword(const char* keyword) {
    std::string_view w = peekWord();
    if (!w.empty() && upper(w) == keyword) {
      // A keyword must end at a non-identifier character ("INSIDE" is no IN).
      std::size_t end = pos_ + w.size();
      if (end < s_.size() && (isIdentChar(s_[end]))) return false;
      pos_ = end;
      return true;
    }
    return false;
  }

  struct Depth {
    explicit Depth(Parser& p) : p_(p) {
      if (++p_.depth_ > kMaxDepth) p_.fail("nesting too deep");
    }
    ~Depth() { --p_.depth_; }
    Parser& p_;
  };

  PredicateNodePtr parseOr() {
    Depth d(*this);
    PredicateNodePtr left = parseAnd();
    std::vector<PredicateNodePtr> items{left};
    while (acceptKeyword("OR") || acceptText("||")) items.push_back(parseAnd());
    if (items.size() == 1) return left;
    auto node = std::make_shared<PredicateNode>();
    node->kind = PredicateNode::Kind::kOr;
    node->children = std::move(items);
    return node;
  }

  PredicateNodePtr parseAnd() {
    PredicateNodePtr left = parseNot();
    std::vector<PredicateNodePtr> items{left};
    while (acceptKeyword("AND") || acceptText("&&")) items.push_back(parseNot());
    if (items.size() == 1) return left;
    auto node = std::make_shared<PredicateNode>();
    node->kind = PredicateNode::Kind::kAnd;
    node->children = std::move(items);
    return node;
  }

  PredicateNodePtr parseNot() {
    Depth d(*this);
    skipSpace();
    if (acceptKeyword("NOT") || (peekChar('!') && s_.substr(pos_, 2) != "!=" && acceptText("!"))) {
      auto node = std::make_shared<PredicateNode>();
      node->kind = PredicateNode::Kind::kNot;
      node->children.push_back(parseNot());
      return node;
    }
    return parsePrimary();
  }

  PredicateNodePtr parsePrimary() {
    skipSpace();
    if (pos_ >= s_.size()) fail("expected a condition");
    if (peekChar('(')) {
      // Parentheses group conditions. (Grouping an expression, "(a) == 1",
      // is not supported: telling the two apart would need backtracking,
      // which hostile input could make exponential.)
      ++pos_;
      PredicateNodePtr inner = parseOr();
      expectChar(')');
      return inner;
    }
    if (acceptKeyword("TRUEPREDICATE")) return constantNode(true);
    if (acceptKeyword("FALSEPREDICATE")) return constantNode(false);
    return parseComparison();
  }

  static PredicateNodePtr constantNode(bool value) {
    auto node = std::make_shared<PredicateNode>();
    node->kind = value ? PredicateNode::Kind::kTrue : PredicateNode::Kind::kFalse;
    return node;
  }

  PredicateNodePtr parseComparison() {
    auto node = std::make_shared<PredicateNode>();
    node->kind = PredicateNode::Kind::kComparison;
    bool negateAll = false;
    if (acceptKeyword("ANY") || acceptKeyword("SOME")) {
      node->modifier = ComparisonModifier::kAny;
    } else if (acceptKeyword("ALL")) {
      node->modifier = ComparisonModifier::kAll;
    } else if (acceptKeyword("NONE")) {
      node->modifier = ComparisonModifier::kAny;
      negateAll = true;
    }
    node->lhs = parseExpression();
    const std::size_t opPos = (skipSpace(), pos_);
    if (!parseOperator(*node)) failAt("expected a comparison operator", opPos);
    parseOptions(*node);
    node->rhs = parseExpression();
    if (!negateAll) return node;
    auto notNode = std::make_shared<PredicateNode>();
    notNode->kind = PredicateNode::Kind::kNot;
    notNode->children.push_back(node);
    return notNode;
  }

  bool parseOperator(PredicateNode& node) {
    skipSpace();
    struct Symbol {
      const char* text;
      ComparisonOperator op;
    };
    static const Symbol kSymbols[] = {
        {"==", ComparisonOperator::kEqual},
        {"!=", ComparisonOperator::kNotEqual},
        {"<>", ComparisonOperator::kNotEqual},
        {"<=", ComparisonOperator::kLessOrEqual},
        {"=<", ComparisonOperator::kLessOrEqual},
        {">=", ComparisonOperator::kGreaterOrEqual},
        {"=>", ComparisonOperator::kGreaterOrEqual},
        {"=", ComparisonOperator::kEqual},
        {"<", ComparisonOperator::kLess},
        {">", ComparisonOperator::kGreater},
    };
    for (const Symbol& sym : kSymbols) {
      if (s_.substr(pos_, std::strlen(sym.text)) == sym.text) {
        pos_ += std::strlen(sym.text);
        node.op = sym.op;
        return true;
      }
    }
    struct Word {
      const char* text;
      ComparisonOperator op;
    };
    static const Word kWords[] = {
        {"LIKE", ComparisonOperator::kLike},
        {"CONTAINS", ComparisonOperator::kContains},
        {"BEGINSWITH", ComparisonOperator::kBeginsWith},
        {"ENDSWITH", ComparisonOperator::kEndsWith},
        {"MATCHES", ComparisonOperator::kMatches},
        {"IN", ComparisonOperator::kIn},
        {"BETWEEN", ComparisonOperator::kBetween},
    };
    std::string_view w = peekWord();
    const std::string word = upper(w);
    for (const Word& k : kWords) {
      if (word == k.text) {
        pos_ += w.size();
        node.op = k.op;
        return true;
      }
    }
    return false;
  }

  void parseOptions(PredicateNode& node) {
    skipSpace();
    if (pos_ >= s_.size() || s_[pos_] != '[') return;
    const std::size_t start = pos_++;
    while (pos_ < s_.size() && s_[pos_] != ']') {
      switch (std::tolower(static_cast<unsigned char>(s_[pos_]))) {
        case 'c':
          node.options |= kCaseInsensitive;
          break;
        case 'd':
          node.options |= kDiacriticInsensitive;
          break;
        case 'n':
        case 'l':
          break;  // normalized / locale-sensitive: nothing more to do
        default:
          failAt("unknown comparison option", pos_);
      }
      ++pos_;
    }
    if (pos_ >= s_.size()) failAt("unterminated comparison options", start);
    ++pos_;
  }

  const PredicateValue& nextArgument(std::size_t at) {
    if (argIndex_ >= args_.size()) failAt("missing argument for placeholder", at);
    return args_[argIndex_++];
  }

  static ExpressionPtr constant(PredicateValue v) {
    auto e = std::make_shared<PredicateExpression>();
    e->kind = PredicateExpression::Kind::kConstant;
    e->value = std::move(v);
    return e;
  }

  // Reads ".key.key" after a primary expression.
  void parseKeySuffix(PredicateExpression& e) {
    while (pos_ < s_.size() && s_[pos_] == '.') {
      ++pos_;
      std::string key = readIdentifier();
      if (key.empty()) fail("expected a key after '.'");
      e.keys.push_back(std::move(key));
    }
  }

  std::string readIdentifier() {
    std::size_t start = pos_;
    if (pos_ < s_.size() && isIdentStart(s_[pos_])) {
      ++pos_;
      while (pos_ < s_.size() && isIdentChar(s_[pos_])) ++pos_;
    }
    std::string id(s_.substr(start, pos_ - start));
    if (!id.empty() && id[0] == '#') id.erase(0, 1);  // #keyword escapes a reserved word
    return id;
  }

  ExpressionPtr parseExpression() {
    Depth d(*this);
    skipSpace();
    if (pos_ >= s_.size()) fail("expected an expression");
    const std::size_t start = pos_;
    const char c = s_[pos_];
    auto e = std::make_shared<PredicateExpression>();
    if (c == '%') {
      if (pos_ + 1 >= s_.size()) fail("incomplete placeholder");
      std::size_t p = pos_ + 1;
      while (p < s_.size() && (s_[p] == 'l' || s_[p] == 'h' || s_[p] == 'q' || s_[p] == 'z')) ++p;
      if (p >= s_.size()) fail("incomplete placeholder");
      const char spec = s_[p];
      pos_ = p + 1;
      const PredicateValue& arg = nextArgument(start);
      switch (spec) {
        case '@':
          e->kind = PredicateExpression::Kind::kConstant;
          e->value = arg;
          break;
        case 'K': {
          if (arg.kind() != PredicateValue::Kind::kScalar || !arg.scalar().asString() ||
              arg.scalar().asString()->empty()) {
            failAt("%K needs a key path argument", start);
          }
          e->kind = PredicateExpression::Kind::kKeyPath;
          std::string path = *arg.scalar().asString();
          std::size_t from = 0;
          while (from <= path.size()) {
            std::size_t dot = path.find('.', from);
            std::string key = path.substr(from, dot == std::string::npos ? std::string::npos : dot - from);
            if (key.empty()) failAt("empty key in %K argument", start);
            e->keys.push_back(key);
            if (dot == std::string::npos) break;
            from = dot + 1;
          }
          break;
        }
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'o':
        case 'c':
          e->kind = PredicateExpression::Kind::kConstant;
          e->value = arg.kind() == PredicateValue::Kind::kScalar
                         ? PredicateValue(Value(static_cast<long long>(arg.scalar().toInt())))
                         : arg;
          break;
        case 'f':
        case 'g':
        case 'e':
          e->kind = PredicateExpression::Kind::kConstant;
          e->value = arg.kind() == PredicateValue::Kind::kScalar
                         ? PredicateValue(Value(arg.scalar().toDouble()))
                         : arg;
          break;
        default:
          failAt(std::string("unknown placeholder %") + spec, start);
      }
      parseKeySuffix(*e);
      return e;
    }
    if (c == '"' || c == '\'') return constant(PredicateValue(readQuoted()));
    if (std::isdigit(static_cast<unsigned char>(c)) ||
        ((c == '-' || c == '+') && pos_ + 1 < s_.size() &&
         (std::isdigit(static_cast<unsigned char>(s_[pos_ + 1])) || s_[pos_ + 1] == '.'))) {
      return constant(readNumber());
    }
    if (c == '{') {
      ++pos_;
      e->kind = PredicateExpression::Kind::kAggregate;
      if (!peekChar('}')) {
        do {
          e->items.push_back(parseExpression());
        } while (acceptText(","));
      }
      expectChar('}');
      return e;
    }
    if (c == '(') {
      ++pos_;
      ExpressionPtr inner = parseExpression();
      expectChar(')');
      return inner;
    }
    if (c == '$') {
      ++pos_;
      e->kind = PredicateExpression::Kind::kVariable;
      e->variable = readIdentifier();
      if (e->variable.empty()) fail("expected a variable name after '$'");
      parseKeySuffix(*e);
      return e;
    }
    if (!isIdentStart(c)) fail(std::string("unexpected character '") + c + "'");
    const std::string word = upper(peekWord());
    if (word == "SUBQUERY" && s_.substr(pos_ + 8).find_first_not_of(" \t\r\n") != std::string_view::npos &&
        s_[s_.find_first_not_of(" \t\r\n", pos_ + 8)] == '(') {
      // Each level of nested subqueries multiplies the work of evaluation.
      if (++subqueryDepth_ > kMaxSubqueryDepth) fail("SUBQUERY nested too deep");
      pos_ += 8;
      expectChar('(');
      e->kind = PredicateExpression::Kind::kSubquery;
      e->collection = parseExpression();
      expectChar(',');
      skipSpace();
      if (!acceptText("$")) fail("SUBQUERY needs a $variable");
      e->variable = readIdentifier();
      if (e->variable.empty()) fail("expected a variable name after '$'");
      expectChar(',');
      e->subpredicate = parseOr();
      expectChar(')');
      --subqueryDepth_;
      parseKeySuffix(*e);
      return e;
    }
    static const char* kReserved[] = {
        "AND", "OR",      "NOT", "LIKE", "CONTAINS", "BEGINSWITH", "ENDSWITH",      "MATCHES",
        "IN",  "BETWEEN", "ANY", "SOME", "ALL",      "NONE",       "TRUEPREDICATE", "FALSEPREDICATE"};
    if (c != '#' && c != '@') {
      std::string_view w = peekWord();
      const bool wordEnds = pos_ + w.size() >= s_.size() || !isIdentChar(s_[pos_ + w.size()]);
      if (wordEnds) {
        if (word == "NIL" || word == "NULL") {
          pos_ += w.size();
          return constant(PredicateValue());
        }
        if (word == "TRUE" || word == "YES") {
          pos_ += w.size();
          return constant(PredicateValue(true));
        }
        if (word == "FALSE" || word == "NO") {
          pos_ += w.size();
          return constant(PredicateValue(false));
        }
        if (word == "SELF") {
          pos_ += w.size();
          e->kind = PredicateExpression::Kind::kSelf;
          parseKeySuffix(*e);
          return e;
        }
        for (const char* r : kReserved) {
          if (word == r) fail("reserved word " + word + " where a key was expected");
        }
      }
    }
    e->kind = PredicateExpression::Kind::kKeyPath;
    std::string key = readIdentifier();
    if (key.empty()) fail("expected a key");
    e->keys.push_back(std::move(key));
    parseKeySuffix(*e);
    return e;
  }

  std::string readQuoted() {
    const char quote = s_[pos_];
    const std::size_t start = pos_++;
    std::string out;
    while (pos_ < s_.size() && s_[pos_] != quote) {
      if (s_[pos_] == '\\' && pos_ + 1 < s_.size()) {
        ++pos_;
        switch (s_[pos_]) {
          case 'n':
            out += '\n';
            break;
          case 't':
            out += '\t';
            break;
          case 'r':
            out += '\r';
            break;
          default:
            out += s_[pos_];
        }
      } else {
        out += s_[pos_];
      }
      ++pos_;
    }
    if (pos_ >= s_.size()) failAt("unterminated string", start);
    ++pos_;
    return out;
  }

  PredicateValue readNumber() {
    const std::size_t start = pos_;
    if (s_[pos_] == '-' || s_[pos_] == '+') ++pos_;
    bool real = false;
    while (pos_ < s_.size() &&
           (std::isdigit(static_cast<unsigned char>(s_[pos_])) || s_[pos_] == '.' || s_[pos_] == 'e' ||
            s_[pos_] == 'E' ||
            ((s_[pos_] == '-' || s_[pos_] == '+') && (s_[pos_ - 1] == 'e' || s_[pos_ - 1] == 'E')))) {
      if (!std::isdigit(static_cast<unsigned char>(s_[pos_]))) real = true;
      ++pos_;
    }
    const std::string text(s_.substr(start, pos_ - start));
    try {
      std::size_t used = 0;
      if (!real) {
        long long v = std::stoll(text, &used);
        if (used == text.size()) return PredicateValue(Value(v));
      }
      double v = std::stod(text, &used);
      if (used == text.size()) return PredicateValue(Value(v));
    } catch (const std::exception&) {
    }
    failAt("bad number '" + text + "'", start);
  }

  std::string_view s_;
  const std::vector<PredicateValue>& args_;
  std::size_t pos_ = 0;
  std::size_t argIndex_ = 0;
  int depth_ = 0;
  int subqueryDepth_ = 0;
};

}  // namespace

Predicate::Predicate() : root_(std::make_shared<PredicateNode>()) {}

Predicate Predicate::predicateWithFormatArguments(std::string_view format,
                                                  const std::vector<PredicateValue>& arguments) {
  Parser parser(format, arguments);
  return Predicate(parser.parseAll());
}

Predicate Predicate::truePredicate() {
  return Predicate();
}

Predicate Predicate::falsePredicate() {
  auto node = std::make_shared<PredicateNode>();
  node->kind = PredicateNode::Kind::kFalse;
  return Predicate(node);
}

namespace {

Predicate compound(PredicateNode::Kind kind, const std::vector<Predicate>& predicates) {
  auto node = std::make_shared<PredicateNode>();
  node->kind = kind;
  for (const auto& p : predicates) node->children.push_back(p.rootPtr());
  if (node->children.empty()) {
    // An empty AND holds, an empty OR does not.
    node->kind = kind == PredicateNode::Kind::kAnd ? PredicateNode::Kind::kTrue : PredicateNode::Kind::kFalse;
  }
  return Predicate(node);
}

}  // namespace

Predicate Predicate::andPredicateWithSubpredicates(const std::vector<Predicate>& predicates) {
  return compound(PredicateNode::Kind::kAnd, predicates);
}

Predicate Predicate::orPredicateWithSubpredicates(const std::vector<Predicate>& predicates) {
  return compound(PredicateNode::Kind::kOr, predicates);
}

Predicate Predicate::notPredicateWithSubpredicate(const Predicate& predicate) {
  auto node = std::make_shared<PredicateNode>();
  node->kind = PredicateNode::Kind::kNot;
  node->children.push_back(predicate.rootPtr());
  return Predicate(node);
}

}  // namespace lumeo
