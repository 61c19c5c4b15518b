#pragma once

#include <QString>

// The one way names are searched in this app: the directory screen's filter,
// the launcher's search and any list that looks a person up by what was typed.
// A match ignores case and accents, so "muller" finds "Müller" and "isik"
// finds "Işık"; scripts without case (Chinese, Japanese, Korean) match as
// written.
namespace SearchText {

// The searchable form of a text: compatibility decomposition, accents and
// other combining marks dropped (the kana voicing marks kept, as they change
// the word), case folded, and the few letters that carry their mark inside
// the letter itself (ı, ł, ø, đ, ß) written plainly. Lists keep this form of
// each name so that a keystroke folds only the query.
QString fold(const QString& text);

// Whether folded text holds folded query. An empty query is held by anything.
bool containsFolded(const QString& foldedText, const QString& foldedQuery);

// Whether text holds query under the rule above; both are folded here.
bool contains(const QString& text, const QString& query);

} // namespace SearchText
