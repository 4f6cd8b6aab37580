// Reading property change archives straight from their coded bytes must give
// exactly what decoding them into values and reading those gives: the same
// values, the same nothing for damaged bytes, the same error for a wrong one.
#include "sync/sync_property_change_value.h"

#include <gtest/gtest.h>

#include <random>

#include "objectgraph/managed_object_model.h"
#include "sync/sync_error.h"

namespace lumeo {
namespace {

// What a reading gave: the archives it read back to, or its error.
struct Outcome {
  bool threw = false;
  std::string error;
  Value archives;
};

Outcome outcomeOf(const std::function<std::optional<std::vector<SyncPropertyChangeValue>>()>& read) {
  Outcome outcome;
  try {
    auto values = read();
    if (values) outcome.archives = SyncPropertyChangeValue::archiveArray(*values);
  } catch (const SyncException& e) {
    outcome.threw = true;
    outcome.error = e.reason();
  }
  return outcome;
}

void expectSameReading(const Value::Data& bytes, const std::string& what) {
  Outcome general = outcomeOf([&] { return SyncPropertyChangeValue::unarchiveArray(decodeValue(bytes)); });
  Outcome direct = outcomeOf(
      [&] { return SyncPropertyChangeValue::unarchiveArrayFromCodedBytes(bytes.data(), bytes.size()); });
  EXPECT_EQ(direct.threw, general.threw) << what << ": " << general.error << " / " << direct.error;
  EXPECT_EQ(direct.error, general.error) << what;
  // Compared as coded bytes: a damaged real may read as NaN on both sides.
  EXPECT_EQ(encodeValue(direct.archives), encodeValue(general.archives)) << what;
}

SyncPropertyChangeValue randomValue(std::mt19937& rng) {
  SyncPropertyChangeValue value(int(rng() % 4), "property" + std::to_string(rng() % 5));
  switch (rng() % 8) {
    case 0:
      break;
    case 1:
      value.value = Value(rng() % 2 == 0);
      break;
    case 2:
      value.value = Value(static_cast<long long>(rng()) - (1LL << 31));
      break;
    case 3:
      value.value = Value(double(rng() % 100000) / 7.0);
      break;
    case 4:
      value.value = Value(std::string(rng() % 40, 'a' + char(rng() % 26)));
      break;
    case 5:
      value.value = Value(Date::fromTimeIntervalSince1970(double(rng() % 2000000000)));
      break;
    case 6:
      value.value = Value(Value::Data(rng() % 300, std::uint8_t(rng())));
      break;
    default:
      value.value = Value(Value::Array{Value(1), Value("nested")});  // read the general way
  }
  if (rng() % 4 == 0) value.filename = "file" + std::to_string(rng() % 10);
  if (rng() % 4 == 0) value.relatedIdentifier = "related" + std::to_string(rng() % 10);
  if (rng() % 4 == 0) value.addedIdentifiers = std::set<std::string>{"a", "b" + std::to_string(rng() % 3)};
  if (rng() % 4 == 0) value.removedIdentifiers = std::set<std::string>{};
  if (rng() % 8 == 0) value.movedIdentifiersByIndex = std::map<std::int64_t, std::string>{{2, "x"}};
  return value;
}

TEST(SyncPropertyChangeValueCodingTest, ArchivesOfEveryShapeReadTheSameFromBytes) {
  std::mt19937 rng(18);
  for (int round = 0; round < 500; ++round) {
    std::vector<SyncPropertyChangeValue> values;
    for (int n = int(rng() % 7); n > 0; --n) values.push_back(randomValue(rng));
    Value::Data bytes = encodeValue(SyncPropertyChangeValue::archiveArray(values));
    expectSameReading(bytes, "round " + std::to_string(round));
    Outcome direct = outcomeOf(
        [&] { return SyncPropertyChangeValue::unarchiveArrayFromCodedBytes(bytes.data(), bytes.size()); });
    EXPECT_TRUE(direct.archives == SyncPropertyChangeValue::archiveArray(values)) << "round " << round;
  }
}

TEST(SyncPropertyChangeValueCodingTest, DamagedAndWrongBytesReadTheSameFromBytes) {
  std::mt19937 rng(21);
  std::vector<SyncPropertyChangeValue> values;
  for (int n = 0; n < 4; ++n) values.push_back(randomValue(rng));
  const Value::Data good = encodeValue(SyncPropertyChangeValue::archiveArray(values));
  for (int round = 0; round < 3000; ++round) {
    Value::Data bytes = good;
    for (int edits = 1 + int(rng() % 4); edits > 0 && !bytes.empty(); --edits) {
      std::size_t at = rng() % bytes.size();
      switch (rng() % 3) {
        case 0:
          bytes[at] = std::uint8_t(rng() % 12);  // often another tag
          break;
        case 1:
          bytes.insert(bytes.begin() + std::ptrdiff_t(at), std::uint8_t(rng()));
          break;
        default:
          bytes.erase(bytes.begin() + std::ptrdiff_t(at));
      }
    }
    expectSameReading(bytes, "mutation " + std::to_string(round));
  }

  // The strict reading's refusals, reached from bytes.
  auto dictionary = [](Value::Dictionary d) { return encodeValue(Value(Value::Array{Value(std::move(d))})); };
  const std::vector<std::pair<std::string, Value::Data>> cases = {
      {"unknown field", dictionary({{"type", Value(0)}, {"propertyName", Value("p")}, {"colour", Value(1)}})},
      {"type as text", dictionary({{"type", Value("0")}, {"propertyName", Value("p")}})},
      {"type out of range", dictionary({{"type", Value(4)}, {"propertyName", Value("p")}})},
      {"no name", dictionary({{"type", Value(0)}})},
      {"empty name", dictionary({{"type", Value(0)}, {"propertyName", Value("")}})},
      {"filename a number",
       dictionary({{"type", Value(0)}, {"propertyName", Value("p")}, {"filename", Value(3)}})},
      {"members not strings", dictionary({{"type", Value(2)},
                                          {"propertyName", Value("p")},
                                          {"addedIdentifiers", Value(Value::Array{Value(1)})}})},
      {"not an array", encodeValue(Value("text"))},
      {"nil", encodeValue(Value())},
      {"trailing byte",
       [&] {
         Value::Data d = good;
         d.push_back(0);
         return d;
       }()},
      {"empty", Value::Data{}},
  };
  for (const auto& [what, bytes] : cases) expectSameReading(bytes, what);
  Outcome unknown = outcomeOf([&] {
    return SyncPropertyChangeValue::unarchiveArrayFromCodedBytes(cases[0].second.data(),
                                                                 cases[0].second.size());
  });
  EXPECT_TRUE(unknown.threw);
  EXPECT_NE(unknown.error.find("unknown field \"colour\""), std::string::npos) << unknown.error;
}

}  // namespace
}  // namespace lumeo
