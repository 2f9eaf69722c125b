#pragma once

#include <QMap>
#include <QString>
#include <string>
#include <string_view>
#include <vector>

namespace skyreel {

/// The text of a settings file in memory: named values, changed line by line, so that everything else in the
/// file (comments, foreign sections, lines that are no settings) stays as it is.
///
/// Format: UTF-8 ini text as the ini format of QSettings, which reads what this writes and the other way
/// round. A line is "name=value"; lines at the top and below [General] hold the plain names, those below
/// [Section] are named "Section/name". A line that begins with ';' is a comment.
///   name   characters other than letters, digits, '_', '-' and '.' are %XX or %UXXXX (hex), '/' is '\'
///   value  blanks at both ends do not count; parts in double quotes are taken as they stand; outside and
///          inside, \n and the like are control characters, \x and hex digits one UTF-16 unit. "@@" at the
///          start is one '@', and @String(...) the text in it. A value with a comma outside quotes is a list:
///          it is read as the comma text it looks like, its quotes kept.
/// A name that stands twice has its last value.
class TIniText {
 public:
  /// Takes any bytes; what is no setting is kept and otherwise left alone.
  explicit TIniText(std::string_view text = {});

  const QMap<QString, QString>& Values() const { return values_; }
  void Set(const QString& name, const QString& value);
  void Remove(const QString& name);
  std::string Text() const;

 private:
  struct TLine {
    std::string Raw;
    QString Name;  ///< empty for a line that is no setting
  };

  std::vector<TLine> lines_;
  std::size_t insert_at_ = 0;  ///< where a new plain name goes
  QMap<QString, QString> values_;
};

}  // namespace skyreel
