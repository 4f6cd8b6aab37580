// The QML singletons of the map: "MapTab" (the Map tab over the core's
// MoodMapViewController: pins, filters, mode, own location, the tiles),
// "MapSettings" (MoodMapSettingsViewController: automatic or manual place,
// deleting every place, the tile server) and "PlaceChooser" (the editor's
// MoodLocationViewController: a map, place search, the chosen centre).
// Rules live in the core; these hand it the user's actions and show what it
// says.
#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QVariantList>
#include <memory>

#include "map_viewport.h"
#include "platform/notification_center.h"
#include "tile_source.h"

namespace lumeo {
class MoodMapViewController;
class MoodRecord;
class MoodMapSettingsViewController;
class MoodLocationViewController;
class NominatimPlaceSearch;
}  // namespace lumeo

namespace lumeo::gui {

class GuiRuntime;

// The tile server of this session (one for the tab and the chooser).
TileSource& sharedTileSource(GuiRuntime& runtime);

class MapTabAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool ready READ ready NOTIFY readyChanged)
  Q_PROPERTY(QObject* viewport READ viewport CONSTANT)
  Q_PROPERTY(QObject* tiles READ tiles CONSTANT)
  Q_PROPERTY(QString dateFromText READ dateFromText NOTIFY filterChanged)
  Q_PROPERTY(QString dateToText READ dateToText NOTIFY filterChanged)
  Q_PROPERTY(QString tagFilterText READ tagFilterText NOTIFY filterChanged)
  Q_PROPERTY(QStringList selectedTags READ selectedTags NOTIFY filterChanged)
  Q_PROPERTY(bool filtered READ filtered NOTIFY filterChanged)
  Q_PROPERTY(bool averageDrawing READ averageDrawing NOTIFY filterChanged)
  Q_PROPERTY(QString modeImage READ modeImage NOTIFY filterChanged)
  Q_PROPERTY(QStringList mapTypeTitles READ mapTypeTitles CONSTANT)
  Q_PROPERTY(int mapType READ mapType NOTIFY filterChanged)
  // Located records read so far, and whether the pins are complete.
  Q_PROPERTY(int locatedCount READ locatedCount NOTIFY pinsSettled)
  Q_PROPERTY(bool settled READ settled NOTIFY pinsSettled)
  // "" when the position is known or being asked for; otherwise why not.
  Q_PROPERTY(QString locationProblem READ locationProblem NOTIFY locationChanged)
  Q_PROPERTY(bool hasOwnLocation READ hasOwnLocation NOTIFY locationChanged)
  Q_PROPERTY(double ownLatitude READ ownLatitude NOTIFY locationChanged)
  Q_PROPERTY(double ownLongitude READ ownLongitude NOTIFY locationChanged)
  // Pins complete and no tile on its way: what a screenshot waits for.
  Q_PROPERTY(bool screenshotReady READ screenshotReady)

 public:
  MapTabAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~MapTabAdapter() override;

  // Makes the controller on the open journal the first time the tab shows.
  Q_INVOKABLE bool open();
  // The tab shows: reads the pins again if the journal changed meanwhile
  // (a record saved, every place deleted). While it shows, a change reads
  // them again at once.
  Q_INVOKABLE void appear();
  Q_INVOKABLE void disappear() { visible_ = false; }
  bool ready() const { return controller_ != nullptr; }
  QObject* viewport() { return &viewport_; }
  QObject* tiles();

  QString dateFromText() const { return dateFrom_; }
  QString dateToText() const { return dateTo_; }
  QString tagFilterText() const { return tagText_; }
  QStringList selectedTags() const;
  bool filtered() const;
  bool averageDrawing() const;
  QString modeImage() const { return modeImage_; }
  QStringList mapTypeTitles() const;
  int mapType() const { return mapType_; }
  int locatedCount() const;
  bool settled() const;
  QString locationProblem() const { return locationProblem_; }
  bool hasOwnLocation() const;
  double ownLatitude() const;
  double ownLongitude() const;
  bool screenshotReady();

  // A click on a pin (its row in viewport.pins): one place is centred,
  // several are fitted on screen.
  Q_INVOKABLE void pinClicked(int row);
  // The moods of a pin, ascending, with its title and subtitle:
  // {title, subtitle, levels: [..], unique}.
  Q_INVOKABLE QVariantMap pinDetails(int row) const;
  // The records of a pin, newest first (at most 100): [{level, date, text}].
  // They are what openRecord's index counts.
  Q_INVOKABLE QVariantList pinRecords(int row);
  // Opens the editor on one of the records pinRecords gave, as History's
  // Edit does.
  Q_INVOKABLE bool openRecord(int index);
  // The dates as YYYY-MM-DD (or the locale's form); an empty end is open.
  // "" when applied, else why not (nothing changes then).
  Q_INVOKABLE QString setDates(const QString& from, const QString& to);
  // The tag chooser's answer.
  Q_INVOKABLE void setTags(const QStringList& names);
  Q_INVOKABLE void clearFilter();
  // Every tag a record holds, most used first.
  Q_INVOKABLE QStringList tagNames() const;
  Q_INVOKABLE void toggleMode();
  Q_INVOKABLE void selectMapType(int type);
  // The location button: asks for the position and centres on it.
  Q_INVOKABLE void showMyLocation();
  // Fits every located record on screen (the view the tab opens with).
  Q_INVOKABLE void fitAll();
  // What the tab waits for, in words (for tests that time out).
  Q_INVOKABLE QString progress();

 Q_SIGNALS:
  void readyChanged();
  void filterChanged();
  void pinsSettled();
  void locationChanged();

 private:
  class View;
  void drained();
  void updateLocation();

  GuiRuntime& runtime_;
  MapViewport viewport_;
  std::shared_ptr<MoodMapViewController> controller_;
  std::shared_ptr<View> view_;
  QString dateFrom_, dateTo_, tagText_, modeImage_ = QStringLiteral("pieChart");
  int mapType_ = 0;
  QString locationProblem_;
  bool wasSettled_ = false;
  bool fitted_ = false;
  bool stale_ = false;
  bool visible_ = false;
  ScopedObserver modelChanged_;
  QTimer recheck_;
  std::vector<std::shared_ptr<lumeo::MoodRecord>> pinRecords_;
};

class MapSettingsAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(QVariantList rows READ rows NOTIFY changed)
  Q_PROPERTY(bool automatic READ automatic NOTIFY changed)
  Q_PROPERTY(QString tileTemplate READ tileTemplate NOTIFY changed)
  Q_PROPERTY(bool tileTemplateFromEnvironment READ tileTemplateFromEnvironment CONSTANT)

 public:
  MapSettingsAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~MapSettingsAdapter() override;

  // The screen's rows: [{key, title}].
  QVariantList rows() const;
  bool automatic() const;
  QString tileTemplate() const;
  bool tileTemplateFromEnvironment() const;

  Q_INVOKABLE void chooseAutomatic();
  Q_INVOKABLE void chooseManual();
  Q_INVOKABLE void deleteGeolocation();
  // "" when the server was taken, else why not. An empty text goes back to
  // OpenStreetMap's.
  Q_INVOKABLE QString setTileTemplate(const QString& urlTemplate);

 Q_SIGNALS:
  void changed();

 private:
  lumeo::MoodMapSettingsViewController& controller();
  GuiRuntime& runtime_;
  std::shared_ptr<lumeo::MoodMapSettingsViewController> controller_;
};

class PlaceChooserAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(QObject* viewport READ viewport CONSTANT)
  Q_PROPERTY(QObject* tiles READ tiles CONSTANT)
  Q_PROPERTY(QVariantList results READ results NOTIFY resultsChanged)
  Q_PROPERTY(bool resultsShown READ resultsShown NOTIFY resultsChanged)
  Q_PROPERTY(bool searching READ searching NOTIFY resultsChanged)
  Q_PROPERTY(QString searchError READ searchError NOTIFY resultsChanged)
  Q_PROPERTY(QString placeholder READ placeholder CONSTANT)
  Q_PROPERTY(QStringList mapTypeTitles READ mapTypeTitles CONSTANT)

 public:
  PlaceChooserAdapter(GuiRuntime& runtime, QObject* parent = nullptr);
  ~PlaceChooserAdapter() override;

  QObject* viewport() { return &viewport_; }
  QObject* tiles();
  QVariantList results() const;
  bool resultsShown() const { return resultsShown_; }
  bool searching() const;
  QString searchError() const { return searchError_; }
  QString placeholder() const;
  QStringList mapTypeTitles() const;

  // Opens on the record's place, or (for -1, -1) on the user's position.
  Q_INVOKABLE void begin(double latitude, double longitude);
  Q_INVOKABLE void search(const QString& text);
  Q_INVOKABLE void selectResult(int index);
  // A click on the map: that point becomes the centre, the chosen place.
  Q_INVOKABLE void pick(double x, double y);
  // The map's centre, reported to the editor; false for an impossible one.
  Q_INVOKABLE bool done();
  Q_INVOKABLE void cancel();

 Q_SIGNALS:
  void resultsChanged();
  // The place chosen with done().
  void chosen(double latitude, double longitude);

 private:
  class Bridge;
  GuiRuntime& runtime_;
  MapViewport viewport_;
  std::shared_ptr<NominatimPlaceSearch> search_;
  std::string searchEndpoint_;
  std::shared_ptr<MoodLocationViewController> controller_;
  std::shared_ptr<Bridge> bridge_;
  bool resultsShown_ = false;
  QString searchError_;
};

}  // namespace lumeo::gui
