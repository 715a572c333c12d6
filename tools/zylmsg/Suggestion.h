#ifndef ZYLMSG_SUGGESTION_H
#define ZYLMSG_SUGGESTION_H

#include <string>
#include <vector>

/// "; did you mean 'listen'?" if `word` is a likely misspelling of one of `known`, else the empty text.
std::string Suggestion(const std::string& word, const std::vector<std::string>& known);

#endif
