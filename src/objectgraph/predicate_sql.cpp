// Predicate and sort translation to SQL, and the SQL functions that string
// comparisons use. Each translated comparison keeps the in-memory meaning
// (see predicate_eval.cpp): the tests run every predicate both ways.
#include "objectgraph/predicate_sql.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>

#include "objectgraph/sqlite_store.h"
#include "objectgraph/text_folding.h"

namespace lumeo {

namespace {

enum class Category { kNull, kString, kNumber, kDate, kOther };

Category attributeCategory(const AttributeDescription& a) {
  switch (a.attributeType()) {
    case AttributeType::kString:
      return Category::kString;
    case AttributeType::kInteger16:
    case AttributeType::kInteger32:
    case AttributeType::kInteger64:
    case AttributeType::kDouble:
    case AttributeType::kBoolean:
      return Category::kNumber;
    case AttributeType::kDate:
      return Category::kDate;
    default:
      return Category::kOther;
  }
}

Category valueCategory(const Value& v) {
  if (v.isNull()) return Category::kNull;
  if (v.isNumber()) return Category::kNumber;
  if (v.asString()) return Category::kString;
  if (v.asDate()) return Category::kDate;
  return Category::kOther;
}

std::string jsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

std::string jsonNumber(double d) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.17g", d);
  return buf;
}

StringOperation stringOperationFor(ComparisonOperator op) {
  switch (op) {
    case ComparisonOperator::kEqual:
      return StringOperation::kEqual;
    case ComparisonOperator::kNotEqual:
      return StringOperation::kNotEqual;
    case ComparisonOperator::kLess:
      return StringOperation::kLess;
    case ComparisonOperator::kLessOrEqual:
      return StringOperation::kLessOrEqual;
    case ComparisonOperator::kGreater:
      return StringOperation::kGreater;
    case ComparisonOperator::kGreaterOrEqual:
      return StringOperation::kGreaterOrEqual;
    case ComparisonOperator::kLike:
      return StringOperation::kLike;
    case ComparisonOperator::kContains:
      return StringOperation::kContains;
    case ComparisonOperator::kBeginsWith:
      return StringOperation::kBeginsWith;
    case ComparisonOperator::kEndsWith:
      return StringOperation::kEndsWith;
    default:
      return StringOperation::kMatches;
  }
}

const char* sqlOperator(ComparisonOperator op) {
  switch (op) {
    case ComparisonOperator::kEqual:
      return " = ";
    case ComparisonOperator::kNotEqual:
      return " IS NOT ";
    case ComparisonOperator::kLess:
      return " < ";
    case ComparisonOperator::kLessOrEqual:
      return " <= ";
    case ComparisonOperator::kGreater:
      return " > ";
    case ComparisonOperator::kGreaterOrEqual:
      return " >= ";
    default:
      return nullptr;
  }
}

bool isOrdering(ComparisonOperator op) {
  return op == ComparisonOperator::kLess || op == ComparisonOperator::kLessOrEqual ||
         op == ComparisonOperator::kGreater || op == ComparisonOperator::kGreaterOrEqual;
}

ComparisonOperator mirrored(ComparisonOperator op) {
  switch (op) {
    case ComparisonOperator::kLess:
      return ComparisonOperator::kGreater;
    case ComparisonOperator::kLessOrEqual:
      return ComparisonOperator::kGreaterOrEqual;
    case ComparisonOperator::kGreater:
      return ComparisonOperator::kLess;
    case ComparisonOperator::kGreaterOrEqual:
      return ComparisonOperator::kLessOrEqual;
    default:
      return op;
  }
}

struct Term {
  enum class Kind { kColumn, kObject, kCount } kind = Kind::kColumn;
  std::string expr;
  const AttributeDescription* attribute = nullptr;
  const EntityDescription* entity = nullptr;
};

struct Scope {
  std::string alias;
  const EntityDescription* entity;
  std::string* joins;
  std::vector<std::string>* joinAliases;
};

using Handler = std::function<std::optional<std::string>(const Term&)>;

class Translator {
 public:
  Translator(const SQLiteStore& store, std::vector<Value>& bindings) : store_(store), bindings_(bindings) {}

  std::optional<std::string> node(const PredicateNode& n, Scope& scope, bool negated) {
    switch (n.kind) {
      case PredicateNode::Kind::kTrue:
        return std::string("1");
      case PredicateNode::Kind::kFalse:
        return std::string("0");
      case PredicateNode::Kind::kAnd:
      case PredicateNode::Kind::kOr: {
        std::string out = "(";
        for (std::size_t i = 0; i < n.children.size(); ++i) {
          auto part = node(*n.children[i], scope, negated);
          if (!part) return std::nullopt;
          if (i) out += n.kind == PredicateNode::Kind::kAnd ? " AND " : " OR ";
          out += *part;
        }
        return out + ")";
      }
      case PredicateNode::Kind::kNot: {
        auto inner = node(*n.children.at(0), scope, !negated);
        if (!inner) return std::nullopt;
        return "NOT COALESCE((" + *inner + "), 0)";
      }
      case PredicateNode::Kind::kComparison: {
        auto c = comparison(n, scope);
        if (!c) return std::nullopt;
        return negated ? "COALESCE((" + *c + "), 0)" : *c;
      }
    }
    return std::nullopt;
  }

  // The expression of an attribute key path through to-ones.
  std::optional<Term> attributePath(const std::vector<std::string>& keys, Scope& scope) {
    std::optional<Term> found;
    auto r = walk(
        keys, 0, scope.alias, *scope.entity, scope, ComparisonModifier::kDirect,
        [&](const Term& t) {
          if (t.kind != Term::Kind::kColumn) return std::optional<std::string>();
          found = t;
          return std::optional<std::string>("1");
        },
        /*allowToMany=*/false);
    if (!r) return std::nullopt;
    return found;
  }

 private:
  std::string bind(const Value& v) {
    bindings_.push_back(SQLiteStore::sqlValue(v));
    return "?";
  }

  std::string toOneJoin(Scope& scope, const std::string& alias, const RelationshipDescription& r) {
    const std::string joined = alias + "_" + r.name();
    std::string cleaned;
    for (char c : joined) cleaned += (std::isalnum(static_cast<unsigned char>(c)) ? c : '_');
    cleaned = "j" + std::to_string(cleaned.size()) + "_" + cleaned;
    if (std::find(scope.joinAliases->begin(), scope.joinAliases->end(), cleaned) ==
        scope.joinAliases->end()) {
      scope.joinAliases->push_back(cleaned);
      *scope.joins += " LEFT JOIN " + store_.tableFor(r.destinationEntity()) + " " + cleaned + " ON " +
                      cleaned + "._pk = " + alias + "." + store_.columnFor(r);
    }
    return cleaned;
  }

  // FROM and link condition of a to-many step from `alias` into alias `s`.
  void toManySource(const RelationshipDescription& r, const std::string& alias, const std::string& s,
                    std::string& from, std::string& link) {
    const std::string destination = store_.tableFor(r.destinationEntity());
    auto join = store_.joinTableFor(r);
    if (!join) {
      from = destination + " " + s;
      link = s + "." + store_.columnFor(*r.inverseRelationship()) + " = " + alias + "._pk";
    } else {
      const std::string j = s + "_link";
      from = join->table + " " + j + " JOIN " + destination + " " + s + " ON " + s + "._pk = " + j + "." +
             (join->sourceIsOwner ? "_dst" : "_src");
      link = j + "." + (join->sourceIsOwner ? "_src" : "_dst") + " = " + alias + "._pk";
    }
    std::string filter = store_.entityFilter(r.destinationEntity(), true, s);
    if (!filter.empty()) link += " AND " + filter;
  }

  std::optional<std::string> walk(const std::vector<std::string>& keys, std::size_t i,
                                  const std::string& alias, const EntityDescription& entity, Scope& scope,
                                  ComparisonModifier modifier, const Handler& handler,
                                  bool allowToMany = true) {
    if (i == keys.size()) {
      Term t;
      t.kind = Term::Kind::kObject;
      t.expr = alias + "._pk";
      t.entity = &entity;
      return handler(t);
    }
    const PropertyDescription* p = entity.propertyNamed(keys[i]);
    if (!p) return std::nullopt;
    const bool last = i + 1 == keys.size();
    if (p->isAttribute()) {
      if (!last || p->isTransient()) return std::nullopt;
      Term t;
      t.expr = alias + "." + store_.columnFor(*p);
      t.attribute = static_cast<const AttributeDescription*>(p);
      return handler(t);
    }
    const auto& r = *static_cast<const RelationshipDescription*>(p);
    if (!r.isToMany()) {
      if (last) {
        Term t;
        t.kind = Term::Kind::kObject;
        t.expr = alias + "." + store_.columnFor(r);
        t.entity = &r.destinationEntity();
        return handler(t);
      }
      return walk(keys, i + 1, toOneJoin(scope, alias, r), r.destinationEntity(), scope, modifier, handler,
                  allowToMany);
    }
    if (!allowToMany) return std::nullopt;
    const std::string s = "s" + std::to_string(++counter_);
    std::string from, link;
    toManySource(r, alias, s, from, link);
    if (i + 2 == keys.size() && keys[i + 1] == "@count") {
      Term t;
      t.kind = Term::Kind::kCount;
      t.expr = "(SELECT COUNT(*) FROM " + from + " WHERE " + link + ")";
      return handler(t);
    }
    std::string innerJoins;
    std::vector<std::string> innerAliases;
    Scope inner{s, &r.destinationEntity(), &innerJoins, &innerAliases};
    auto condition = walk(keys, i + 1, s, r.destinationEntity(), inner, modifier, handler);
    if (!condition) return std::nullopt;
    if (modifier == ComparisonModifier::kAll) {
      return "NOT EXISTS (SELECT 1 FROM " + from + innerJoins + " WHERE " + link + " AND NOT COALESCE((" +
             *condition + "), 0))";
    }
    return "EXISTS (SELECT 1 FROM " + from + innerJoins + " WHERE " + link + " AND (" + *condition + "))";
  }

  std::optional<std::string> subqueryCount(const PredicateExpression& e, Scope& scope,
                                           const Handler& handler) {
    const PredicateExpression& c = *e.collection;
    std::string alias = scope.alias;
    const EntityDescription* entity = scope.entity;
    if (c.kind == PredicateExpression::Kind::kVariable) {
      auto it = variables_.find(c.variable);
      if (it == variables_.end()) return std::nullopt;
      alias = it->second.first;
      entity = it->second.second;
    } else if (c.kind != PredicateExpression::Kind::kKeyPath && c.kind != PredicateExpression::Kind::kSelf) {
      return std::nullopt;
    }
    if (c.keys.empty()) return std::nullopt;
    for (std::size_t i = 0; i + 1 < c.keys.size(); ++i) {
      const RelationshipDescription* r = entity->relationshipNamed(c.keys[i]);
      if (!r || r->isToMany()) return std::nullopt;
      alias = toOneJoin(scope, alias, *r);
      entity = &r->destinationEntity();
    }
    const RelationshipDescription* r = entity->relationshipNamed(c.keys.back());
    if (!r || !r->isToMany()) return std::nullopt;
    const std::string s = "s" + std::to_string(++counter_);
    std::string from, link;
    toManySource(*r, alias, s, from, link);
    std::string innerJoins;
    std::vector<std::string> innerAliases;
    Scope inner{s, &r->destinationEntity(), &innerJoins, &innerAliases};
    const bool shadowed = variables_.count(e.variable) > 0;
    auto saved = shadowed ? variables_[e.variable] : std::pair<std::string, const EntityDescription*>();
    variables_[e.variable] = {s, &r->destinationEntity()};
    auto condition = node(*e.subpredicate, inner, false);
    if (shadowed) {
      variables_[e.variable] = saved;
    } else {
      variables_.erase(e.variable);
    }
    if (!condition) return std::nullopt;
    Term t;
    t.kind = Term::Kind::kCount;
    t.expr = "(SELECT COUNT(*) FROM " + from + innerJoins + " WHERE " + link + " AND (" + *condition + "))";
    return handler(t);
  }

  static std::optional<PredicateValue> constantOf(const PredicateExpression& e) {
    if (!e.keys.empty()) return std::nullopt;
    if (e.kind == PredicateExpression::Kind::kConstant) return e.value;
    if (e.kind == PredicateExpression::Kind::kAggregate) {
      std::vector<PredicateValue> items;
      for (const auto& item : e.items) {
        auto v = constantOf(*item);
        if (!v) return std::nullopt;
        items.push_back(*v);
      }
      return PredicateValue(std::move(items));
    }
    return std::nullopt;
  }

  std::optional<std::string> comparison(const PredicateNode& n, Scope& scope) {
    const PredicateExpression* path = n.lhs.get();
    auto constant = constantOf(*n.rhs);
    ComparisonOperator op = n.op;
    if (!constant) {
      // "5 < frequency" reads as "frequency > 5".
      auto left = constantOf(*n.lhs);
      if (!left ||
          (!isOrdering(op) && op != ComparisonOperator::kEqual && op != ComparisonOperator::kNotEqual)) {
        return std::nullopt;
      }
      constant = left;
      path = n.rhs.get();
      op = mirrored(op);
    }
    const PredicateValue value = *constant;
    Handler handler = [&](const Term& t) { return build(t, op, n.options, value); };
    switch (path->kind) {
      case PredicateExpression::Kind::kKeyPath:
      case PredicateExpression::Kind::kSelf:
        return walk(path->keys, 0, scope.alias, *scope.entity, scope, n.modifier, handler);
      case PredicateExpression::Kind::kVariable: {
        auto it = variables_.find(path->variable);
        if (it == variables_.end()) return std::nullopt;
        return walk(path->keys, 0, it->second.first, *it->second.second, scope, n.modifier, handler);
      }
      case PredicateExpression::Kind::kSubquery:
        if (path->keys.size() != 1 || path->keys[0] != "@count") return std::nullopt;
        return subqueryCount(*path, scope, handler);
      default:
        return std::nullopt;
    }
  }

  std::optional<std::string> inList(const std::string& expr, const std::vector<std::string>& items) {
    std::string json = "[";
    for (std::size_t i = 0; i < items.size(); ++i) json += (i ? "," : "") + items[i];
    json += "]";
    return expr + " IN (SELECT value FROM json_each(" + bind(Value(json)) + "))";
  }

  std::optional<std::string> build(const Term& t, ComparisonOperator op, unsigned options,
                                   const PredicateValue& c) {
    if (t.kind == Term::Kind::kCount) {
      const char* sqlOp = sqlOperator(op);
      if (!sqlOp || c.kind() != PredicateValue::Kind::kScalar || !c.scalar().isNumber()) return std::nullopt;
      if (op == ComparisonOperator::kNotEqual) sqlOp = " != ";
      return t.expr + sqlOp + bind(c.scalar());
    }
    if (t.kind == Term::Kind::kObject) return buildObject(t, op, c);
    return buildColumn(t, op, options, c);
  }

  bool samePlace(const ManagedObjectID& id, const EntityDescription& entity) const {
    return id && !id.isTemporaryID() && id.storeIdentifier() == store_.identifier() &&
           id.entity().rootEntity().name() == entity.rootEntity().name();
  }

  std::optional<std::string> buildObject(const Term& t, ComparisonOperator op, const PredicateValue& c) {
    const bool eq = op == ComparisonOperator::kEqual;
    const bool ne = op == ComparisonOperator::kNotEqual;
    if (c.kind() == PredicateValue::Kind::kCollection) {
      if (op != ComparisonOperator::kIn) return std::nullopt;
      std::vector<std::string> pks;
      for (const auto& item : c.items()) {
        if (item.kind() == PredicateValue::Kind::kObject && samePlace(item.objectID(), *t.entity)) {
          pks.push_back(std::to_string(item.objectID().primaryKey()));
        }
      }
      return inList(t.expr, pks);
    }
    if (!eq && !ne) {
      return op == ComparisonOperator::kIn ? std::nullopt : std::optional<std::string>("0");
    }
    if (c.isNull()) return t.expr + (eq ? " IS NULL" : " IS NOT NULL");
    if (c.kind() == PredicateValue::Kind::kObject && samePlace(c.objectID(), *t.entity)) {
      return t.expr + (eq ? " = " : " IS NOT ") +
             bind(Value(static_cast<long long>(c.objectID().primaryKey())));
    }
    return std::string(eq ? "0" : "1");
  }

  std::optional<std::string> buildColumn(const Term& t, ComparisonOperator op, unsigned options,
                                         const PredicateValue& c) {
    const Category column = attributeCategory(*t.attribute);
    if (op == ComparisonOperator::kIn) {
      if (c.kind() == PredicateValue::Kind::kScalar && c.scalar().asString()) {
        if (column != Category::kString) return std::string("0");
        return "og_cmp(" + std::to_string(static_cast<int>(StringOperation::kContains)) + ", " +
               std::to_string(options) + ", " + bind(c.scalar()) + ", " + t.expr + ")";
      }
      if (c.kind() != PredicateValue::Kind::kCollection)
        return buildColumn(t, ComparisonOperator::kEqual, options, c);
      if (options && column == Category::kString) return std::nullopt;
      std::vector<std::string> items;
      for (const auto& item : c.items()) {
        if (item.kind() != PredicateValue::Kind::kScalar || valueCategory(item.scalar()) != column) continue;
        const Value& v = item.scalar();
        if (column == Category::kString) {
          items.push_back(jsonString(*v.asString()));
        } else if (column == Category::kDate) {
          items.push_back(jsonNumber(v.asDate()->timeIntervalSince1970()));
        } else if (column == Category::kNumber) {
          items.push_back(v.type() == Value::Type::kInteger ? std::to_string(v.toInt())
                                                            : jsonNumber(v.toDouble()));
        }
      }
      if (column == Category::kOther) return std::nullopt;
      return inList(t.expr, items);
    }
    if (op == ComparisonOperator::kBetween) {
      if (c.kind() != PredicateValue::Kind::kCollection || c.items().size() != 2) return std::nullopt;
      auto lo = buildColumn(t, ComparisonOperator::kGreaterOrEqual, options, c.items()[0]);
      auto hi = buildColumn(t, ComparisonOperator::kLessOrEqual, options, c.items()[1]);
      if (!lo || !hi) return std::nullopt;
      return "(" + *lo + " AND " + *hi + ")";
    }
    if (c.kind() != PredicateValue::Kind::kScalar) {
      if (op == ComparisonOperator::kEqual) return std::string("0");
      if (op == ComparisonOperator::kNotEqual) return std::string("1");
      if (c.kind() == PredicateValue::Kind::kObject) return std::string("0");
      return std::nullopt;
    }
    const Value& v = c.scalar();
    const Category constant = valueCategory(v);
    if (column == Category::kOther) {
      if (!v.isNull()) return std::nullopt;
    }
    const char* sqlOp = sqlOperator(op);
    if (v.isNull()) {
      if (op == ComparisonOperator::kEqual) return t.expr + " IS NULL";
      if (op == ComparisonOperator::kNotEqual) return t.expr + " IS NOT NULL";
      return std::string("0");
    }
    if (constant != column) {
      if (op == ComparisonOperator::kEqual) return std::string("0");
      if (op == ComparisonOperator::kNotEqual) return std::string("1");
      return std::string("0");
    }
    if (sqlOp && (options == 0 || column != Category::kString)) return t.expr + sqlOp + bind(v);
    if (column != Category::kString) return std::string("0");
    return "og_cmp(" + std::to_string(static_cast<int>(stringOperationFor(op))) + ", " +
           std::to_string(options) + ", " + t.expr + ", " + bind(v) + ")";
  }

  const SQLiteStore& store_;
  std::vector<Value>& bindings_;
  int counter_ = 0;
  std::map<std::string, std::pair<std::string, const EntityDescription*>> variables_;
};

void flattenAnd(const PredicateNodePtr& node, std::vector<PredicateNodePtr>& out) {
  if (node->kind == PredicateNode::Kind::kAnd) {
    for (const auto& c : node->children) flattenAnd(c, out);
  } else {
    out.push_back(node);
  }
}

void sqlCompare(sqlite3_context* context, int, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[2]) != SQLITE_TEXT || sqlite3_value_type(argv[3]) != SQLITE_TEXT) {
    sqlite3_result_int(context, 0);
    return;
  }
  const int op = sqlite3_value_int(argv[0]);
  const unsigned options = static_cast<unsigned>(sqlite3_value_int(argv[1]));
  std::string_view lhs(reinterpret_cast<const char*>(sqlite3_value_text(argv[2])),
                       sqlite3_value_bytes(argv[2]));
  std::string_view rhs(reinterpret_cast<const char*>(sqlite3_value_text(argv[3])),
                       sqlite3_value_bytes(argv[3]));
  sqlite3_result_int(context, compareStrings(static_cast<StringOperation>(op), options, lhs, rhs) ? 1 : 0);
}

void sqlFold(sqlite3_context* context, int, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[0]) != SQLITE_TEXT) {
    sqlite3_result_value(context, argv[0]);
    return;
  }
  std::string_view text(reinterpret_cast<const char*>(sqlite3_value_text(argv[0])),
                        sqlite3_value_bytes(argv[0]));
  std::string folded = foldTextUTF8(text, static_cast<unsigned>(sqlite3_value_int(argv[1])));
  sqlite3_result_text(context, folded.data(), static_cast<int>(folded.size()), SQLITE_TRANSIENT);
}

}  // namespace

void registerPredicateFunctions(sqlite3* db) {
  sqlite3_create_function(db, "og_cmp", 4, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, sqlCompare, nullptr,
                          nullptr);
  sqlite3_create_function(db, "og_fold", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, sqlFold, nullptr,
                          nullptr);
}

SqlTranslation PredicateSQL::translate(const Predicate& predicate, const EntityDescription& entity,
                                       const SQLiteStore& store) {
  SqlTranslation out;
  std::vector<std::string> aliases;
  std::vector<PredicateNodePtr> conjuncts;
  flattenAnd(predicate.rootPtr(), conjuncts);
  std::vector<Predicate> residual;
  std::vector<std::string> parts;
  for (const auto& c : conjuncts) {
    // Each conjunct translates on its own; a failed one must leave no
    // bindings or joins behind.
    std::vector<Value> bindings;
    std::string joins = out.joins;
    std::vector<std::string> joinAliases = aliases;
    Translator t(store, bindings);
    Scope scope{"t0", &entity, &joins, &joinAliases};
    auto sql = t.node(*c, scope, false);
    if (!sql) {
      residual.emplace_back(c);
      continue;
    }
    if (*sql == "1") continue;
    parts.push_back(*sql);
    out.joins = joins;
    aliases = joinAliases;
    out.bindings.insert(out.bindings.end(), bindings.begin(), bindings.end());
  }
  for (std::size_t i = 0; i < parts.size(); ++i) out.where += (i ? " AND " : "") + parts[i];
  if (!residual.empty()) {
    out.residual = residual.size() == 1 ? residual[0] : Predicate::andPredicateWithSubpredicates(residual);
  }
  out.joinAliases = aliases;
  return out;
}

std::optional<std::string> PredicateSQL::attributeExpression(const std::string& keyPath,
                                                             const EntityDescription& entity,
                                                             const SQLiteStore& store,
                                                             SqlTranslation& translation,
                                                             const AttributeDescription** attribute) {
  std::vector<std::string> keys;
  std::size_t from = 0;
  while (true) {
    std::size_t dot = keyPath.find('.', from);
    keys.push_back(keyPath.substr(from, dot == std::string::npos ? std::string::npos : dot - from));
    if (dot == std::string::npos) break;
    from = dot + 1;
  }
  std::vector<Value> unused;
  Translator t(store, unused);
  Scope scope{"t0", &entity, &translation.joins, &translation.joinAliases};
  auto term = t.attributePath(keys, scope);
  if (!term) return std::nullopt;
  if (attribute) *attribute = term->attribute;
  return term->expr;
}

std::optional<std::string> PredicateSQL::orderBy(const std::vector<SortDescriptor>& sort,
                                                 const EntityDescription& entity, const SQLiteStore& store,
                                                 SqlTranslation& translation) {
  std::string out;
  for (const auto& d : sort) {
    const AttributeDescription* attribute = nullptr;
    auto expr = attributeExpression(d.key, entity, store, translation, &attribute);
    if (!expr) return std::nullopt;
    std::string term = d.caseInsensitive && attribute->attributeType() == AttributeType::kString
                           ? "og_fold(" + *expr + ", 1)"
                           : *expr;
    out += term + (d.ascending ? " ASC, " : " DESC, ");
  }
  return out + "t0._pk";
}

}  // namespace lumeo
