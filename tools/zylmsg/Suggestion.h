#ifndef ZYLMSG_SUGGESTION_H
#define ZYLMSG_SUGGESTION_H

#include <string>
#include <vector>

/// "; did you mean 'listen'?" for a mistyped `word` that is close to one of `known`, else nothing.
std::string Suggestion(const std::string& word, const std::vector<std::string>& known);

#endif
