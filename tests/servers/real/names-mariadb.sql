-- Names a database allows that are search patterns, escapes or otherwise awkward (MariaDB names
-- hold no characters beyond the Basic Multilingual Plane).
CREATE OR REPLACE DATABASE udml_names CHARACTER SET utf8mb4 COLLATE utf8mb4_bin;
USE udml_names;
CREATE TABLE `back\slash` (c_backslash int PRIMARY KEY) COMMENT 'comment with \\ and {braces}';
CREATE TABLE `backslash` (c_neighbour int);
CREATE TABLE `trail\` (c_trail int);
CREATE TABLE `t%` (c_percent int PRIMARY KEY);
CREATE TABLE `under_score` (c_under int);
CREATE TABLE `quote"d` (c_quote int);
CREATE TABLE `it's` (c_apostrophe int);
CREATE TABLE `with space` (c_space int);
CREATE TABLE `€ Größe` (`c_€` int);
CREATE TABLE `Mixed` (c_upper int COMMENT 'upper');
CREATE TABLE `mixed` (c_lower int);
CREATE TABLE referrer (c_ref int, FOREIGN KEY (c_ref) REFERENCES `back\slash` (c_backslash));
