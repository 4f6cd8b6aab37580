// Evaluating predicates in memory, on managed objects and on plain values
// (dictionaries by key), and writing them back as format text. The rules
// here are the reference that the SQL translation follows: nil equals only
// nil, ordering with nil or across kinds is false, a comparison on a to-many
// key path holds when it holds for any member.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "objectgraph/predicate.h"
#include "objectgraph/text_folding.h"

namespace lumeo {

PredicateValue::PredicateValue(Value v) {
  if (const Value::Array* a = v.asArray()) {
    kind_ = Kind::kCollection;
    for (const auto& item : *a) items_.emplace_back(item);
  } else {
    scalar_ = std::move(v);
  }
}

PredicateValue::PredicateValue(const ManagedObjectPtr& object) {
  if (!object) return;
  kind_ = Kind::kObject;
  object_ = object;
  id_ = object->objectID();
}

PredicateValue::PredicateValue(const ManagedObjectID& id) {
  if (!id) return;
  kind_ = Kind::kObject;
  id_ = id;
}

namespace {

std::string scalarText(const Value& v) {
  char buf[64];
  switch (v.type()) {
    case Value::Type::kNull:
      return "nil";
    case Value::Type::kBool:
      return v.toBool() ? "TRUE" : "FALSE";
    case Value::Type::kInteger:
      return std::to_string(v.toInt());
    case Value::Type::kReal:
      std::snprintf(buf, sizeof buf, "%.17g", v.toDouble());
      return buf;
    case Value::Type::kString: {
      std::string out = "\"";
      for (char c : *v.asString()) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
      }
      return out + "\"";
    }
    case Value::Type::kDate:
      std::snprintf(buf, sizeof buf, "CAST(%.17g, \"NSDate\")", v.asDate()->timeIntervalSinceReferenceDate());
      return buf;
    case Value::Type::kData:
      return "<data>";
    case Value::Type::kArray:
      return "<array>";
    case Value::Type::kDictionary:
      return "<dictionary>";
  }
  return "?";
}

}  // namespace

std::string PredicateValue::description() const {
  switch (kind_) {
    case Kind::kScalar:
      return scalarText(scalar_);
    case Kind::kObject:
      return "\"" + id_.URIRepresentation() + "\"";
    case Kind::kCollection: {
      std::string out = "{";
      for (std::size_t i = 0; i < items_.size(); ++i) out += (i ? ", " : "") + items_[i].description();
      return out + "}";
    }
  }
  return "?";
}

namespace {

using Variables = std::map<std::string, PredicateValue>;

bool evaluateNode(const PredicateNode& node, const PredicateValue& self, Variables& vars);

PredicateValue fromValue(const Value& v) {
  return PredicateValue(v);
}

void flattenInto(const PredicateValue& v, std::vector<PredicateValue>& out) {
  if (v.kind() == PredicateValue::Kind::kCollection) {
    for (const auto& item : v.items()) flattenInto(item, out);
  } else {
    out.push_back(v);
  }
}

PredicateValue aggregate(const std::string& op, const PredicateValue& v) {
  std::vector<PredicateValue> items;
  flattenInto(v, items);
  if (op == "@count") {
    if (v.kind() == PredicateValue::Kind::kScalar && v.isNull()) return PredicateValue(0);
    return PredicateValue(
        static_cast<long long>(v.kind() == PredicateValue::Kind::kCollection ? v.items().size() : 1));
  }
  double sum = 0;
  int n = 0;
  std::optional<double> lo, hi;
  for (const auto& item : items) {
    if (item.kind() != PredicateValue::Kind::kScalar || !item.scalar().isNumber()) continue;
    const double x = item.scalar().toDouble();
    sum += x;
    ++n;
    lo = lo ? std::min(*lo, x) : x;
    hi = hi ? std::max(*hi, x) : x;
  }
  if (op == "@sum") return PredicateValue(sum);
  if (op == "@avg") return n ? PredicateValue(sum / n) : PredicateValue();
  if (op == "@min") return lo ? PredicateValue(*lo) : PredicateValue();
  if (op == "@max") return hi ? PredicateValue(*hi) : PredicateValue();
  return PredicateValue();
}

PredicateValue applyKey(const PredicateValue& v, const std::string& key) {
  if (!key.empty() && key[0] == '@') return aggregate(key, v);
  switch (v.kind()) {
    case PredicateValue::Kind::kCollection: {
      std::vector<PredicateValue> out;
      for (const auto& item : v.items()) flattenInto(applyKey(item, key), out);
      return PredicateValue(std::move(out));
    }
    case PredicateValue::Kind::kObject: {
      const ManagedObjectPtr& o = v.object();
      if (!o) return PredicateValue();
      const PropertyDescription* p = o->entity().propertyNamed(key);
      if (!p) return PredicateValue();
      if (p->isAttribute()) return fromValue(o->valueForKey(key));
      const auto* r = static_cast<const RelationshipDescription*>(p);
      if (!r->isToMany()) return PredicateValue(o->objectForKey(key));
      std::vector<PredicateValue> members;
      for (const auto& m : o->objectsForKey(key)) members.emplace_back(m);
      return PredicateValue(std::move(members));
    }
    case PredicateValue::Kind::kScalar:
      if (v.scalar().asDictionary()) return fromValue(v.scalar()[key]);
      return PredicateValue();
  }
  return PredicateValue();
}

PredicateValue resolve(const PredicateExpression& e, const PredicateValue& self, Variables& vars) {
  PredicateValue base;
  switch (e.kind) {
    case PredicateExpression::Kind::kConstant:
      base = e.value;
      break;
    case PredicateExpression::Kind::kSelf:
    case PredicateExpression::Kind::kKeyPath:
      base = self;
      break;
    case PredicateExpression::Kind::kVariable: {
      auto it = vars.find(e.variable);
      base = it == vars.end() ? PredicateValue() : it->second;
      break;
    }
    case PredicateExpression::Kind::kAggregate: {
      std::vector<PredicateValue> items;
      for (const auto& item : e.items) items.push_back(resolve(*item, self, vars));
      base = PredicateValue(std::move(items));
      break;
    }
    case PredicateExpression::Kind::kSubquery: {
      PredicateValue collection = resolve(*e.collection, self, vars);
      std::vector<PredicateValue> members;
      flattenInto(collection, members);
      std::vector<PredicateValue> kept;
      auto saved = vars.find(e.variable) != vars.end() ? std::optional<PredicateValue>(vars[e.variable])
                                                       : std::nullopt;
      for (const auto& m : members) {
        vars[e.variable] = m;
        if (evaluateNode(*e.subpredicate, self, vars)) kept.push_back(m);
      }
      if (saved) {
        vars[e.variable] = *saved;
      } else {
        vars.erase(e.variable);
      }
      base = PredicateValue(std::move(kept));
      break;
    }
  }
  for (std::size_t i = 0; i < e.keys.size(); ++i) {
    const std::string& key = e.keys[i];
    if (key.size() > 1 && key[0] == '@' && key != "@count" && i + 1 < e.keys.size()) {
      // "items.@sum.value": the rest of the path picks what is summed.
      PredicateValue members = base;
      for (std::size_t j = i + 1; j < e.keys.size(); ++j) members = applyKey(members, e.keys[j]);
      return aggregate(key, members);
    }
    base = applyKey(base, key);
  }
  return base;
}

enum class Kind { kNull, kNumber, kString, kDate, kData, kObject, kOther };

Kind kindOf(const PredicateValue& v) {
  if (v.kind() == PredicateValue::Kind::kObject) return Kind::kObject;
  if (v.kind() == PredicateValue::Kind::kCollection) return Kind::kOther;
  const Value& s = v.scalar();
  if (s.isNull()) return Kind::kNull;
  if (s.isNumber()) return Kind::kNumber;
  if (s.asString()) return Kind::kString;
  if (s.asDate()) return Kind::kDate;
  if (s.asData()) return Kind::kData;
  return Kind::kOther;
}

bool equalValues(const PredicateValue& a, const PredicateValue& b, unsigned options) {
  const Kind ka = kindOf(a), kb = kindOf(b);
  if (ka != kb) return false;
  switch (ka) {
    case Kind::kNull:
      return true;
    case Kind::kObject:
      return a.objectID() == b.objectID();
    case Kind::kString:
      return compareStrings(StringOperation::kEqual, options, *a.scalar().asString(), *b.scalar().asString());
    case Kind::kNumber:
      return a.scalar().toDouble() == b.scalar().toDouble();
    default:
      return a.scalar() == b.scalar();
  }
}

// -1, 0, 1, or nothing when the two cannot be ordered.
std::optional<int> order(const PredicateValue& a, const PredicateValue& b, unsigned options) {
  const Kind ka = kindOf(a), kb = kindOf(b);
  if (ka != kb) return std::nullopt;
  switch (ka) {
    case Kind::kNumber: {
      const double x = a.scalar().toDouble(), y = b.scalar().toDouble();
      return x < y ? -1 : (x > y ? 1 : 0);
    }
    case Kind::kDate: {
      const Date x = *a.scalar().asDate(), y = *b.scalar().asDate();
      return x < y ? -1 : (x > y ? 1 : 0);
    }
    case Kind::kString: {
      const std::string& x = *a.scalar().asString();
      const std::string& y = *b.scalar().asString();
      if (compareStrings(StringOperation::kLess, options, x, y)) return -1;
      if (compareStrings(StringOperation::kGreater, options, x, y)) return 1;
      return 0;
    }
    default:
      return std::nullopt;
  }
}

bool stringOp(StringOperation op, unsigned options, const PredicateValue& a, const PredicateValue& b) {
  if (kindOf(a) != Kind::kString || kindOf(b) != Kind::kString) return false;
  return compareStrings(op, options, *a.scalar().asString(), *b.scalar().asString());
}

bool compareOne(ComparisonOperator op, unsigned options, const PredicateValue& lhs,
                const PredicateValue& rhs) {
  switch (op) {
    case ComparisonOperator::kEqual:
      return equalValues(lhs, rhs, options);
    case ComparisonOperator::kNotEqual:
      return !equalValues(lhs, rhs, options);
    case ComparisonOperator::kLess: {
      auto o = order(lhs, rhs, options);
      return o && *o < 0;
    }
    case ComparisonOperator::kLessOrEqual: {
      auto o = order(lhs, rhs, options);
      return o && *o <= 0;
    }
    case ComparisonOperator::kGreater: {
      auto o = order(lhs, rhs, options);
      return o && *o > 0;
    }
    case ComparisonOperator::kGreaterOrEqual: {
      auto o = order(lhs, rhs, options);
      return o && *o >= 0;
    }
    case ComparisonOperator::kLike:
      return stringOp(StringOperation::kLike, options, lhs, rhs);
    case ComparisonOperator::kBeginsWith:
      return stringOp(StringOperation::kBeginsWith, options, lhs, rhs);
    case ComparisonOperator::kEndsWith:
      return stringOp(StringOperation::kEndsWith, options, lhs, rhs);
    case ComparisonOperator::kMatches:
      return stringOp(StringOperation::kMatches, options, lhs, rhs);
    case ComparisonOperator::kContains:
      if (lhs.kind() == PredicateValue::Kind::kCollection) {
        return std::any_of(lhs.items().begin(), lhs.items().end(),
                           [&](const PredicateValue& item) { return equalValues(item, rhs, options); });
      }
      return stringOp(StringOperation::kContains, options, lhs, rhs);
    case ComparisonOperator::kIn:
      if (rhs.kind() == PredicateValue::Kind::kCollection) {
        return std::any_of(rhs.items().begin(), rhs.items().end(),
                           [&](const PredicateValue& item) { return equalValues(lhs, item, options); });
      }
      if (kindOf(rhs) == Kind::kString) return stringOp(StringOperation::kContains, options, rhs, lhs);
      return equalValues(lhs, rhs, options);
    case ComparisonOperator::kBetween: {
      if (rhs.kind() != PredicateValue::Kind::kCollection || rhs.items().size() != 2) return false;
      auto lo = order(lhs, rhs.items()[0], options);
      auto hi = order(lhs, rhs.items()[1], options);
      return lo && hi && *lo >= 0 && *hi <= 0;
    }
  }
  return false;
}

bool evaluateComparison(const PredicateNode& node, const PredicateValue& self, Variables& vars) {
  PredicateValue lhs = resolve(*node.lhs, self, vars);
  PredicateValue rhs = resolve(*node.rhs, self, vars);
  const bool lhsIsCollection = lhs.kind() == PredicateValue::Kind::kCollection;
  const bool membership =
      node.op == ComparisonOperator::kContains && node.modifier == ComparisonModifier::kDirect;
  if (lhsIsCollection && !membership && node.lhs->kind != PredicateExpression::Kind::kAggregate) {
    // A to-many key path compares member by member: ANY unless ALL is asked.
    std::vector<PredicateValue> members;
    flattenInto(lhs, members);
    if (node.modifier == ComparisonModifier::kAll) {
      return std::all_of(members.begin(), members.end(),
                         [&](const PredicateValue& m) { return compareOne(node.op, node.options, m, rhs); });
    }
    return std::any_of(members.begin(), members.end(),
                       [&](const PredicateValue& m) { return compareOne(node.op, node.options, m, rhs); });
  }
  return compareOne(node.op, node.options, lhs, rhs);
}

bool evaluateNode(const PredicateNode& node, const PredicateValue& self, Variables& vars) {
  switch (node.kind) {
    case PredicateNode::Kind::kTrue:
      return true;
    case PredicateNode::Kind::kFalse:
      return false;
    case PredicateNode::Kind::kAnd:
      for (const auto& c : node.children) {
        if (!evaluateNode(*c, self, vars)) return false;
      }
      return true;
    case PredicateNode::Kind::kOr:
      for (const auto& c : node.children) {
        if (evaluateNode(*c, self, vars)) return true;
      }
      return false;
    case PredicateNode::Kind::kNot:
      return !evaluateNode(*node.children.at(0), self, vars);
    case PredicateNode::Kind::kComparison:
      return evaluateComparison(node, self, vars);
  }
  return false;
}

const char* operatorText(ComparisonOperator op) {
  switch (op) {
    case ComparisonOperator::kEqual:
      return "==";
    case ComparisonOperator::kNotEqual:
      return "!=";
    case ComparisonOperator::kLess:
      return "<";
    case ComparisonOperator::kLessOrEqual:
      return "<=";
    case ComparisonOperator::kGreater:
      return ">";
    case ComparisonOperator::kGreaterOrEqual:
      return ">=";
    case ComparisonOperator::kLike:
      return "LIKE";
    case ComparisonOperator::kContains:
      return "CONTAINS";
    case ComparisonOperator::kBeginsWith:
      return "BEGINSWITH";
    case ComparisonOperator::kEndsWith:
      return "ENDSWITH";
    case ComparisonOperator::kMatches:
      return "MATCHES";
    case ComparisonOperator::kIn:
      return "IN";
    case ComparisonOperator::kBetween:
      return "BETWEEN";
  }
  return "?";
}

std::string formatNode(const PredicateNode& node);

std::string formatExpression(const PredicateExpression& e) {
  std::string out;
  switch (e.kind) {
    case PredicateExpression::Kind::kConstant:
      out = e.value.description();
      break;
    case PredicateExpression::Kind::kSelf:
      out = "SELF";
      break;
    case PredicateExpression::Kind::kKeyPath:
      break;
    case PredicateExpression::Kind::kVariable:
      out = "$" + e.variable;
      break;
    case PredicateExpression::Kind::kAggregate:
      out = "{";
      for (std::size_t i = 0; i < e.items.size(); ++i) out += (i ? ", " : "") + formatExpression(*e.items[i]);
      out += "}";
      break;
    case PredicateExpression::Kind::kSubquery:
      out = "SUBQUERY(" + formatExpression(*e.collection) + ", $" + e.variable + ", " +
            formatNode(*e.subpredicate) + ")";
      break;
  }
  for (std::size_t i = 0; i < e.keys.size(); ++i) {
    if (!out.empty() || i) out += ".";
    out += e.keys[i];
  }
  return out;
}

std::string formatNode(const PredicateNode& node) {
  switch (node.kind) {
    case PredicateNode::Kind::kTrue:
      return "TRUEPREDICATE";
    case PredicateNode::Kind::kFalse:
      return "FALSEPREDICATE";
    case PredicateNode::Kind::kAnd:
    case PredicateNode::Kind::kOr: {
      std::string out = "(";
      for (std::size_t i = 0; i < node.children.size(); ++i) {
        if (i) out += node.kind == PredicateNode::Kind::kAnd ? " AND " : " OR ";
        out += formatNode(*node.children[i]);
      }
      return out + ")";
    }
    case PredicateNode::Kind::kNot:
      return "NOT " + formatNode(*node.children.at(0));
    case PredicateNode::Kind::kComparison: {
      std::string out;
      if (node.modifier == ComparisonModifier::kAny) out = "ANY ";
      if (node.modifier == ComparisonModifier::kAll) out = "ALL ";
      out += formatExpression(*node.lhs) + " " + operatorText(node.op);
      if (node.options) {
        out += "[";
        if (node.options & kCaseInsensitive) out += "c";
        if (node.options & kDiacriticInsensitive) out += "d";
        out += "]";
      }
      return out + " " + formatExpression(*node.rhs);
    }
  }
  return "?";
}

}  // namespace

bool Predicate::evaluateWithObject(const ManagedObject& object) const {
  Variables vars;
  // The object is shared by its owner; a predicate only reads it.
  ManagedObjectPtr self = const_cast<ManagedObject&>(object).shared_from_this();
  return evaluateNode(*root_, PredicateValue(self), vars);
}

bool Predicate::evaluateWithObject(const Value& object) const {
  Variables vars;
  const PredicateValue self(object);
  return evaluateNode(*root_, self, vars);
}

std::string Predicate::predicateFormat() const {
  return formatNode(*root_);
}

std::vector<ManagedObjectPtr> filteredArrayUsingPredicate(const std::vector<ManagedObjectPtr>& objects,
                                                          const Predicate& predicate) {
  std::vector<ManagedObjectPtr> out;
  for (const auto& o : objects) {
    if (o && predicate.evaluateWithObject(*o)) out.push_back(o);
  }
  return out;
}

std::vector<Value> filteredArrayUsingPredicate(const std::vector<Value>& values, const Predicate& predicate) {
  std::vector<Value> out;
  for (const auto& v : values) {
    if (predicate.evaluateWithObject(v)) out.push_back(v);
  }
  return out;
}

}  // namespace lumeo
