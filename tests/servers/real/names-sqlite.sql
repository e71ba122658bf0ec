-- Names a database allows that are search patterns, escapes or otherwise awkward (SQLite's names
-- ignore case, so there are no case variants).
CREATE TABLE "back\slash" (c_backslash INTEGER PRIMARY KEY);
CREATE TABLE "backslash" (c_neighbour INTEGER);
CREATE TABLE "trail\" (c_trail INTEGER);
CREATE TABLE "t%" (c_percent INTEGER PRIMARY KEY);
CREATE TABLE "under_score" (c_under INTEGER);
CREATE TABLE "quote""d" (c_quote INTEGER);
CREATE TABLE "it's" (c_apostrophe INTEGER);
CREATE TABLE "with space" (c_space INTEGER);
CREATE TABLE "😀 smile" ("c_😀" INTEGER);
CREATE TABLE referrer (c_ref INTEGER REFERENCES "back\slash" (c_backslash));
