// A comment as tagged text for QML: the core's MoodTaggedTextView lays the
// text out at the item's width and draws it (lozenges, colours, the "..."
// of the last line); this object serves that picture, its height, and the
// tap targets of the tags so that a tap on a tag can open its history.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <memory>

namespace lumeo {
class MoodTaggedTextView;
}

namespace lumeo::gui {

class TaggedTextLayout : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString text READ text WRITE setText NOTIFY layoutChanged)
  Q_PROPERTY(double width READ width WRITE setWidth NOTIFY layoutChanged)
  Q_PROPERTY(int maxLines READ maxLines WRITE setMaxLines NOTIFY layoutChanged)
  Q_PROPERTY(int shortLines READ shortLines WRITE setShortLines NOTIFY layoutChanged)
  Q_PROPERTY(double shortIndent READ shortIndent WRITE setShortIndent NOTIFY layoutChanged)
  Q_PROPERTY(bool dark READ dark WRITE setDark NOTIFY layoutChanged)
  Q_PROPERTY(double height READ height NOTIFY layoutChanged)
  Q_PROPERTY(QString source READ source NOTIFY layoutChanged)
  Q_PROPERTY(QVariantList tags READ tags NOTIFY layoutChanged)

 public:
  explicit TaggedTextLayout(QObject* parent = nullptr);
  ~TaggedTextLayout() override;

  QString text() const { return text_; }
  void setText(const QString& text);
  double width() const { return width_; }
  void setWidth(double width);
  int maxLines() const { return maxLines_; }
  void setMaxLines(int lines);
  int shortLines() const { return shortLines_; }
  void setShortLines(int lines);
  double shortIndent() const { return shortIndent_; }
  void setShortIndent(double indent);
  bool dark() const { return dark_; }
  void setDark(bool dark);

  double height() const;
  // "tabs/<key>/<revision>" for the image provider; empty without text.
  QString source() const;
  // The tap targets: {x, y, width, height, name} in points.
  QVariantList tags() const;
  // The tag under a point of the text (points), or "" when none.
  Q_INVOKABLE QString tagAt(double x, double y);

 Q_SIGNALS:
  void layoutChanged();

 private:
  void relayout();

  QString text_;
  double width_ = 320;
  int maxLines_ = 100;
  int shortLines_ = 0;
  double shortIndent_ = 0;
  bool dark_ = false;
  int revision_ = 0;
  QString key_;
  std::unique_ptr<MoodTaggedTextView> view_;
};

}  // namespace lumeo::gui
