// The Summary tab's adapters on a real journal: the period, the bars and
// the cards come from the core and change with the period; the chart
// pictures are the core's; the two tag lists and their photos; a tag row
// opens its history and the centre photo the gallery; the graph zooms and
// pans within the core's limits and draws its lines.
#include "summary_controller.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QImage>
#include <QSignalSpy>

#include "browse/browse_test_support.h"
#include "gallery_model.h"
#include "graph_controller.h"
#include "history_controller.h"
#include "picture_provider.h"
#include "summary_pictures.h"
#include "summary_top_tags_model.h"

namespace lumeo::gui {
namespace {

using testing::BrowseTest;

class SummaryControllerTest : public BrowseTest {
 protected:
  // A month of records, two a day, with tags on both sides and photos.
  void fillMonth() {
    for (int day = 1; day <= 21; ++day) {
      add(3 + day % 5, at(2026, 11, day, 8), day % 3 == 0 ? "#work late" : "#sleep:7h", day % 7 == 0);
      add(6 + day % 4, at(2026, 11, day, 19), "#dog walk", day % 5 == 0);
    }
  }
  static QImage picture(const QString& source) {
    auto image = TabPictures::render(source.section(QLatin1Char('/'), 1), QSize());
    return image ? toQImage(*image) : QImage();
  }
};

TEST_F(SummaryControllerTest, ThePeriodBarsAndChartsComeFromTheCore) {
  fillMonth();
  SummaryController summary(*store_, defaults_);
  summary.setChartSize(400, 260);
  summary.appear();
  EXPECT_EQ(summary.period(), 0);
  EXPECT_EQ(summary.periodTitle(), QStringLiteral("From first record"));
  EXPECT_EQ(summary.periodTitles().size(), 6);
  EXPECT_EQ(summary.recordCount(), 42);

  const QVariantList bars = summary.statBars();
  ASSERT_EQ(bars.size(), 3);
  EXPECT_EQ(bars[0].toMap()[QStringLiteral("title")].toString(), QStringLiteral("Total"));
  EXPECT_FALSE(bars[0].toMap()[QStringLiteral("hidden")].toBool());
  const double fraction = bars[0].toMap()[QStringLiteral("fraction")].toDouble();
  EXPECT_GT(fraction, 0.4);
  EXPECT_LT(fraction, 0.8);

  const QVariantList cards = summary.cards();
  ASSERT_EQ(cards.size(), 3);
  EXPECT_FALSE(cards[0].toMap()[QStringLiteral("notEnoughData")].toBool());
  EXPECT_TRUE(cards[0].toMap()[QStringLiteral("hasGraph")].toBool());
  EXPECT_FALSE(cards[1].toMap()[QStringLiteral("hasGraph")].toBool());
  const QImage trend = picture(cards[0].toMap()[QStringLiteral("source")].toString());
  ASSERT_FALSE(trend.isNull());
  EXPECT_NEAR(trend.width() / trend.devicePixelRatio(), 400, 1);
  // The card's background is opaque; the picture is not blank.
  EXPECT_EQ(trend.pixelColor(2, 2).alpha(), 255);

  // A new period is stored and recomputed at once.
  QSignalSpy changed(&summary, &SummaryController::summaryChanged);
  summary.openPeriodPicker();
  EXPECT_TRUE(summary.pickerVisible());
  summary.choosePeriod(4);
  EXPECT_FALSE(summary.pickerVisible());
  EXPECT_GE(changed.count(), 1);
  EXPECT_EQ(summary.periodTitle(), QStringLiteral("Last 30 days"));
  EXPECT_EQ(defaults_->integerForKey("kMoodSummaryChartType"), 4);
  EXPECT_NE(summary.cards()[0].toMap()[QStringLiteral("source")], cards[0].toMap()[QStringLiteral("source")]);
}

TEST_F(SummaryControllerTest, AFewRecordsAreNotEnoughDataForTheCharts) {
  add(7, at(2026, 11, 20, 9));
  add(5, at(2026, 11, 21, 9));
  SummaryController summary(*store_, defaults_);
  summary.appear();
  for (const QVariant& card : summary.cards())
    EXPECT_TRUE(card.toMap()[QStringLiteral("notEnoughData")].toBool());
  EXPECT_FALSE(summary.cards()[0].toMap()[QStringLiteral("hasGraph")].toBool());
  // All records in the last week: the month bar says so instead of
  // repeating the week.
  EXPECT_TRUE(summary.statBars()[2].toMap()[QStringLiteral("hidden")].toBool());
  EXPECT_EQ(summary.statBars()[1].toMap()[QStringLiteral("text")].toString(), QStringLiteral("6.0"));
}

TEST_F(SummaryControllerTest, TheTagPagesListBothSidesAndOpenHistoriesAndTheGallery) {
  fillMonth();
  SummaryController summary(*store_, defaults_);
  summary.appear();
  auto* positive = qobject_cast<SummaryTopTagsModel*>(summary.positiveTags());
  auto* negative = qobject_cast<SummaryTopTagsModel*>(summary.negativeTags());
  QAbstractItemModelTester t1(positive, QAbstractItemModelTester::FailureReportingMode::Fatal);
  QAbstractItemModelTester t2(negative, QAbstractItemModelTester::FailureReportingMode::Fatal);
  ASSERT_EQ(positive->count(), 1);
  EXPECT_EQ(positive->data(positive->index(0), SummaryTopTagsModel::NameRole).toString(),
            QStringLiteral("dog"));
  EXPECT_TRUE(
      positive->data(positive->index(0), SummaryTopTagsModel::LabelRole).toString().startsWith("#Dog "));
  ASSERT_EQ(negative->count(), 2);
  EXPECT_TRUE(summary.positiveEmptyTags().isEmpty());

  auto* photos = qobject_cast<SummaryPhotosModel*>(summary.positivePhotos());
  QAbstractItemModelTester t3(photos, QAbstractItemModelTester::FailureReportingMode::Fatal);
  EXPECT_GT(photos->count(), 0);
  EXPECT_TRUE(photos->data(photos->index(0), SummaryPhotosModel::ThumbRole).toUrl().isLocalFile());

  auto* history = qobject_cast<HistoryController*>(summary.openTag(false, 0));
  ASSERT_NE(history, nullptr);
  EXPECT_EQ(history->count(), 21);

  // The carousel starts at the newest photo; a tap on another photo brings
  // it to the centre, a tap on the centre opens the gallery there.
  const int centre = summary.positiveCarouselIndex();
  EXPECT_EQ(centre, photos->count() - 1);
  EXPECT_EQ(summary.tapPhoto(false, 0), nullptr);
  EXPECT_EQ(summary.positiveCarouselIndex(), 0);
  auto* gallery = qobject_cast<GalleryModel*>(summary.tapPhoto(false, 0));
  ASSERT_NE(gallery, nullptr);
  EXPECT_EQ(gallery->count(), photos->count());
  EXPECT_EQ(gallery->title(), QStringLiteral("Positive"));
}

TEST_F(SummaryControllerTest, TheGraphZoomsAndPansWithinItsLimitsAndDrawsTagLines) {
  for (int day = 0; day < 120; ++day)
    add(3 + day % 7, at(2026, 7, 1, 9).dateByAddingTimeInterval(day * 86400.0),
        "#sleep:" + std::to_string(5 + day % 4) + "h");
  SummaryController summary(*store_, defaults_);
  summary.appear();
  auto* graph = qobject_cast<GraphController*>(summary.openGraph());
  ASSERT_NE(graph, nullptr);
  graph->setViewSize(600, 300);
  ASSERT_FALSE(graph->empty());
  const QVariantList series = graph->series();
  ASSERT_EQ(series.size(), 1);
  EXPECT_EQ(series[0].toMap()[QStringLiteral("key")].toString(), QStringLiteral("sleep:h"));
  EXPECT_TRUE(graph->toggleSeries(QStringLiteral("sleep:h")));
  EXPECT_TRUE(graph->series()[0].toMap()[QStringLiteral("selected")].toBool());
  EXPECT_FALSE(graph->toggleSeries(QStringLiteral("nothing:x")));

  const QImage image = picture(graph->source());
  ASSERT_FALSE(image.isNull());
  EXPECT_EQ(image.width(), 600);

  // Zooming out stops at the whole range, in never below ten days.
  for (int i = 0; i < 20; ++i) graph->wheel(-1);
  const int widest = graph->zoomRate();
  EXPECT_FALSE(graph->canMoveLeft());
  for (int i = 0; i < 30; ++i) graph->wheel(1);
  EXPECT_EQ(graph->zoomRate(), 10);
  EXPECT_LT(graph->zoomRate(), widest);
  EXPECT_TRUE(graph->canMoveLeft());
  EXPECT_FALSE(graph->moveRight());  // it starts at the newest records
  EXPECT_TRUE(graph->moveLeft());
  EXPECT_TRUE(graph->canMoveRight());

  const QVariantList settings = graph->settings();
  ASSERT_EQ(settings.size(), 2);
  EXPECT_TRUE(graph->setSetting(settings[0].toMap()[QStringLiteral("key")].toString(), false));
  EXPECT_FALSE(graph->settings()[0].toMap()[QStringLiteral("on")].toBool());
}

}  // namespace
}  // namespace lumeo::gui
