// Predicates: conditions on objects written in the platform's predicate
// format ("date >= %@ AND date <= %@", "tagName like[cd] %@",
// "SUBQUERY(moodTags, $x, $x.tagName == %@).@count > 0"). A predicate is an
// immutable tree; it filters objects in memory and, through PredicateSQL, in
// the store. Parsing throws PredicateSyntaxError with the offset of the fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_id.h"
#include "platform/value.h"

namespace lumeo {

// A value a predicate works with: a plain Value, an object (by ID, with the
// object itself when known), or a collection of such values.
class PredicateValue {
 public:
  enum class Kind { kScalar, kObject, kCollection };

  PredicateValue() = default;
  PredicateValue(Value v);  // a Value array becomes a collection
  PredicateValue(std::nullptr_t) {}
  PredicateValue(bool b) : scalar_(b) {}
  PredicateValue(int i) : scalar_(i) {}
  PredicateValue(long i) : scalar_(i) {}
  PredicateValue(long long i) : scalar_(i) {}
  PredicateValue(unsigned i) : scalar_(i) {}
  PredicateValue(double d) : scalar_(d) {}
  PredicateValue(const char* s) : scalar_(s) {}
  PredicateValue(std::string s) : scalar_(std::move(s)) {}
  PredicateValue(Date d) : scalar_(d) {}
  PredicateValue(const ManagedObjectPtr& object);
  PredicateValue(const ManagedObjectID& id);
  PredicateValue(std::vector<PredicateValue> items) : kind_(Kind::kCollection), items_(std::move(items)) {}
  // Any other range (vector or set of objects, IDs, strings, numbers).
  template <class Range, class = decltype(std::begin(std::declval<const Range&>())),
            class = std::enable_if_t<!std::is_convertible_v<const Range&, std::string> &&
                                     !std::is_same_v<Range, std::vector<PredicateValue>> &&
                                     !std::is_same_v<Range, Value::Data>>>
  PredicateValue(const Range& range) : kind_(Kind::kCollection) {
    for (const auto& item : range) items_.emplace_back(item);
  }

  Kind kind() const { return kind_; }
  bool isNull() const { return kind_ == Kind::kScalar && scalar_.isNull(); }
  const Value& scalar() const { return scalar_; }
  const ManagedObjectID& objectID() const { return id_; }
  const ManagedObjectPtr& object() const { return object_; }
  const std::vector<PredicateValue>& items() const { return items_; }
  std::string description() const;

 private:
  Kind kind_ = Kind::kScalar;
  Value scalar_;
  ManagedObjectID id_;
  ManagedObjectPtr object_;
  std::vector<PredicateValue> items_;
};

class PredicateSyntaxError : public std::invalid_argument {
 public:
  PredicateSyntaxError(const std::string& message, std::size_t position)
      : std::invalid_argument(message + " at offset " + std::to_string(position)), position_(position) {}
  std::size_t position() const { return position_; }

 private:
  std::size_t position_;
};

// --- The tree.
struct PredicateExpression;
using ExpressionPtr = std::shared_ptr<const PredicateExpression>;
struct PredicateNode;
using PredicateNodePtr = std::shared_ptr<const PredicateNode>;

struct PredicateExpression {
  enum class Kind {
    kConstant,   // value
    kKeyPath,    // keys, from the evaluated object
    kSelf,       // the evaluated object
    kVariable,   // name ($x), then keys
    kAggregate,  // {a, b, c}: items
    kSubquery,   // SUBQUERY(collection, $variable, predicate), then keys (@count)
  };
  Kind kind = Kind::kConstant;
  PredicateValue value;
  std::vector<std::string> keys;  // may end in "@count", "@sum", "@avg", "@min", "@max"
  std::string variable;
  std::vector<ExpressionPtr> items;
  ExpressionPtr collection;
  PredicateNodePtr subpredicate;
};

enum class ComparisonOperator {
  kEqual,
  kNotEqual,
  kLess,
  kLessOrEqual,
  kGreater,
  kGreaterOrEqual,
  kLike,
  kContains,
  kBeginsWith,
  kEndsWith,
  kMatches,
  kIn,
  kBetween,
};
enum class ComparisonModifier { kDirect, kAny, kAll };

// Folding options of string comparisons.
enum ComparisonOptions : unsigned { kNoFolding = 0, kCaseInsensitive = 1, kDiacriticInsensitive = 2 };

struct PredicateNode {
  enum class Kind { kTrue, kFalse, kAnd, kOr, kNot, kComparison };
  Kind kind = Kind::kTrue;
  std::vector<PredicateNodePtr> children;  // and, or, not
  ComparisonOperator op = ComparisonOperator::kEqual;
  ComparisonModifier modifier = ComparisonModifier::kDirect;
  unsigned options = kNoFolding;
  ExpressionPtr lhs, rhs;
};

class Predicate {
 public:
  // TRUEPREDICATE.
  Predicate();
  explicit Predicate(PredicateNodePtr root) : root_(std::move(root)) {}

  // Format with arguments for %@ (any value), %d/%i/%ld/%lld/%u (integers),
  // %f/%lf (doubles) and %K (a key path given as a string).
  template <class... Args>
  static Predicate predicateWithFormat(std::string_view format, Args&&... args) {
    return predicateWithFormatArguments(
        format, std::vector<PredicateValue>{PredicateValue(std::forward<Args>(args))...});
  }
  static Predicate predicateWithFormatArguments(std::string_view format,
                                                const std::vector<PredicateValue>& arguments);
  static Predicate truePredicate();
  static Predicate falsePredicate();
  static Predicate andPredicateWithSubpredicates(const std::vector<Predicate>& predicates);
  static Predicate orPredicateWithSubpredicates(const std::vector<Predicate>& predicates);
  static Predicate notPredicateWithSubpredicate(const Predicate& predicate);

  bool evaluateWithObject(const ManagedObject& object) const;
  bool evaluateWithObject(const ManagedObjectPtr& object) const {
    return object && evaluateWithObject(*object);
  }
  // Dictionaries are evaluated by key, other Values as SELF.
  bool evaluateWithObject(const Value& object) const;

  // The predicate written back in format syntax, arguments filled in.
  std::string predicateFormat() const;
  const PredicateNode& root() const { return *root_; }
  const PredicateNodePtr& rootPtr() const { return root_; }

 private:
  PredicateNodePtr root_;
};

std::vector<Value> filteredArrayUsingPredicate(const std::vector<Value>& values, const Predicate& predicate);

}  // namespace lumeo
