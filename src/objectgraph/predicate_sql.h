// Translation of predicates and sort descriptors into SQL over the store's
// schema. Plain comparisons become column comparisons (so that an index on
// `date` serves a date range), key paths through to-one relationships become
// joins, to-many ones EXISTS or COUNT subqueries, and string operators with
// folding call og_cmp, which runs the in-memory comparison code. What cannot
// be translated is handed back as a residual predicate for memory.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/value.h"

namespace lumeo {

class SQLiteStore;

struct SqlTranslation {
  std::string joins;  // " LEFT JOIN ..." clauses for the FROM of alias t0
  std::string where;  // empty when everything matches
  std::vector<Value> bindings;
  std::vector<std::string> joinAliases;  // aliases the joins introduced
  // The part that must be checked in memory; none when `where` says it all.
  std::optional<Predicate> residual;
  bool complete() const { return !residual.has_value(); }
};

class PredicateSQL {
 public:
  // Translates for rows of `entity` in table alias t0. Conjuncts of a
  // top-level AND that cannot be translated go to the residual; any other
  // untranslatable predicate goes there whole.
  static SqlTranslation translate(const Predicate& predicate, const EntityDescription& entity,
                                  const SQLiteStore& store);
  // ORDER BY terms (without the keywords) for the sort, adding joins to
  // `translation`; none when some key cannot be sorted in SQL.
  static std::optional<std::string> orderBy(const std::vector<SortDescriptor>& sort,
                                            const EntityDescription& entity, const SQLiteStore& store,
                                            SqlTranslation& translation);
  // SQL expression of an attribute key path (through to-ones) for
  // dictionary results; none when the path is not such.
  static std::optional<std::string> attributeExpression(const std::string& keyPath,
                                                        const EntityDescription& entity,
                                                        const SQLiteStore& store, SqlTranslation& translation,
                                                        const AttributeDescription** attribute = nullptr);
};

}  // namespace lumeo
