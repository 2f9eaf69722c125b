#include "settings/ini_text.h"

#include <algorithm>

#include "base/text.h"

namespace skyreel {

namespace {

bool IsHexDigit(QChar c) {
  return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

bool IsNameCharacter(QChar c) {
  return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_' ||
         c == u'-' || c == u'.';
}

QString EncodedName(const QString& name) {
  QString text;
  for (const QChar c : name) {
    if (IsNameCharacter(c)) {
      text += c;
    } else if (c == u'/') {
      text += u'\\';
    } else if (c.unicode() <= 0xFF) {
      text += QString("%%1").arg(c.unicode(), 2, 16, QChar(u'0')).toUpper();
    } else {
      text += "%U" + QString("%1").arg(c.unicode(), 4, 16, QChar(u'0')).toUpper();
    }
  }
  return text;
}

QString DecodedName(const QString& text) {
  QString name;
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (text[i] == u'\\') {
      name += u'/';
      continue;
    }
    if (text[i] == u'%') {
      const bool wide = i + 1 < text.size() && text[i + 1] == u'U';
      const QString digits = text.mid(i + (wide ? 2 : 1), wide ? 4 : 2);
      bool is_number = false;
      const ushort unit = digits.toUShort(&is_number, 16);
      if (is_number && digits.size() == (wide ? 4 : 2)) {
        name += QChar(unit);
        i += wide ? 5 : 2;
        continue;
      }
    }
    name += text[i];
  }
  return name;
}

/// Always in quotes, so that no blank, comma, ';' or '=' means anything.
QString EncodedValue(const QString& value) {
  QString text = "\"";
  if (value.startsWith(u'@')) text += u'@';
  bool after_hex = false;
  for (const QChar c : value) {
    const bool hex = !c.isPrint() || c.isSurrogate() || (after_hex && IsHexDigit(c));
    after_hex = hex;
    if (hex) {
      text += "\\x" + QString::number(c.unicode(), 16);
    } else {
      if (c == u'"' || c == u'\\') text += u'\\';
      text += c;
    }
  }
  return text + u'"';
}

/// A value like 200 or true needs no quotes and reads better without.
bool IsPlain(const QString& value) {
  return !value.isEmpty() && std::all_of(value.begin(), value.end(), IsNameCharacter);
}

/// Reads one escape; `i` stands on the backslash and is left on the escape's last character.
QChar Unescaped(const QString& text, qsizetype& i) {
  static constexpr std::u16string_view kLetters = u"abfnrtv";
  static constexpr std::u16string_view kControls = u"\a\b\f\n\r\t\v";
  if (++i == text.size()) return u'\\';
  const QChar c = text[i];
  if (const auto at = kLetters.find(c.unicode()); at != kLetters.npos) return kControls[at];
  const bool hex = c == u'x';
  const int base = hex ? 16 : 8;
  if (!hex && (c < u'0' || c > u'7')) return c;
  ushort unit = 0;
  for (qsizetype k = hex ? i + 1 : i; k < text.size(); ++k) {
    const bool is_digit = hex ? IsHexDigit(text[k]) : text[k] >= u'0' && text[k] <= u'7';
    if (!is_digit) break;
    unit = static_cast<ushort>(unit * base + QString(text[k]).toInt(nullptr, base));
    i = k;
  }
  return unit;
}

QString DecodedValue(const QString& text) {
  QString joined;   // with the quotes taken off
  QString written;  // with the quotes kept
  qsizetype wanted_size = 0;
  bool in_quotes = false, is_list = false;
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (text[i] == u'"') {
      in_quotes = !in_quotes;
      written += u'"';
      wanted_size = joined.size();
      continue;
    }
    is_list = is_list || (text[i] == u',' && !in_quotes);
    const bool is_blank = text[i] == u' ' || text[i] == u'\t';
    const QChar c = text[i] == u'\\' ? Unescaped(text, i) : text[i];
    written += c;
    if (is_blank && !in_quotes && joined.isEmpty()) continue;
    joined += c;
    // Blanks that end the value outside quotes are dropped.
    if (in_quotes || !is_blank) wanted_size = joined.size();
  }
  if (is_list) return written;
  joined.truncate(wanted_size);
  if (joined.startsWith("@@")) return joined.mid(1);
  if (joined.startsWith("@String(") && joined.endsWith(u')')) return joined.mid(8, joined.size() - 9);
  return joined;
}

std::string Assigned(const std::string& name, const QString& value) {
  return name + '=' + (IsPlain(value) ? value : EncodedValue(value)).toStdString();
}

}  // namespace

TIniText::TIniText(std::string_view text) {
  while (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  QString section;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    TLine line{std::string(text.substr(0, end)), QString()};
    text.remove_prefix(std::min(end + 1, text.size()));

    const std::string_view content = Trim(line.Raw);
    const std::size_t equals = content.find('=');
    if (content.starts_with('[') && content.ends_with(']')) {
      section = QString::fromUtf8(content.substr(1, content.size() - 2)).trimmed();
      section = section.compare("general", Qt::CaseInsensitive) == 0 ? "" : DecodedName(section) + "/";
    } else if (!content.starts_with(';') && equals != content.npos && equals > 0) {
      line.Name = section + DecodedName(QString::fromUtf8(Trim(content.substr(0, equals))));
      values_[line.Name] = DecodedValue(QString::fromUtf8(Trim(content.substr(equals + 1))));
    }
    lines_.push_back(std::move(line));
    if (section.isEmpty() && !content.empty()) insert_at_ = lines_.size();
  }
}

void TIniText::Set(const QString& name, const QString& value) {
  values_[name] = value;
  const auto last =
      std::find_if(lines_.rbegin(), lines_.rend(), [&](const TLine& line) { return line.Name == name; });
  if (last != lines_.rend()) {
    last->Raw = Assigned(last->Raw.substr(0, last->Raw.find('=')), value);
    return;
  }
  if (lines_.empty()) lines_.resize(++insert_at_, {"[General]", QString()});
  lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(insert_at_++),
                {Assigned(EncodedName(name).toStdString(), value), name});
}

void TIniText::Remove(const QString& name) {
  values_.remove(name);
  for (std::size_t i = lines_.size(); i-- > 0;) {
    if (lines_[i].Name != name) continue;
    lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(i));
    if (i < insert_at_) --insert_at_;
  }
}

std::string TIniText::Text() const {
  std::string text;
  for (const TLine& line : lines_) text += line.Raw + '\n';
  return text;
}

}  // namespace skyreel
