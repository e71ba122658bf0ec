-- Names a database allows that are search patterns, escapes or otherwise awkward, and keys that
-- psqlODBC reports differently from the database's constraints.
SET client_min_messages = warning;
DROP SCHEMA IF EXISTS udml_names, "nm\s", "nm\_s", "nm_s", "nmXs" CASCADE;
CREATE SCHEMA udml_names;
SET search_path = udml_names;
CREATE TABLE "back\slash" (c_backslash int PRIMARY KEY);
CREATE TABLE "backslash" (c_neighbour int);
CREATE TABLE "trail\" (c_trail int);
CREATE TABLE "t%" (c_percent int PRIMARY KEY);
CREATE TABLE "under_score" (c_under int);
CREATE TABLE "quote""d" (c_quote int);
CREATE TABLE "it's" (c_apostrophe int);
CREATE TABLE "with space" (c_space int);
CREATE TABLE "😀 smile" ("c_😀" int);
CREATE TABLE "Mixed" (c_upper int);
CREATE TABLE "mixed" (c_lower int);
COMMENT ON TABLE "back\slash" IS 'comment with \ and {braces}';
COMMENT ON COLUMN "Mixed".c_upper IS 'upper';
-- No primary key, but another table's index is named like one.
CREATE TABLE nokey (c_nokey int);
CREATE TABLE holder (c_holder int);
CREATE UNIQUE INDEX nokey_pkey ON holder (c_holder);
-- A primary key with an INCLUDE column.
CREATE TABLE inc (c_key int, c_included int, PRIMARY KEY (c_key) INCLUDE (c_included));
-- A foreign key to a partitioned table.
CREATE TABLE parted (c_id int PRIMARY KEY) PARTITION BY RANGE (c_id);
CREATE TABLE parted_1 PARTITION OF parted FOR VALUES FROM (0) TO (10);
CREATE TABLE parted_2 PARTITION OF parted FOR VALUES FROM (10) TO (20);
CREATE TABLE referrer (c_ref int REFERENCES parted (c_id));
CREATE MATERIALIZED VIEW matview AS SELECT c_id FROM parted;
COMMENT ON MATERIALIZED VIEW matview IS 'a materialized view';
CREATE VIEW plainview AS SELECT c_key FROM inc;
COMMENT ON VIEW plainview IS 'a view';
-- Schemas whose names are patterns of one another.
CREATE SCHEMA "nm\s";
CREATE TABLE "nm\s".t (c_backslash_s int PRIMARY KEY);
CREATE SCHEMA "nm\_s";
CREATE TABLE "nm\_s".t (c_backslash_underscore int PRIMARY KEY);
CREATE SCHEMA "nm_s";
CREATE TABLE "nm_s".t (c_underscore int PRIMARY KEY);
CREATE SCHEMA "nmXs";
CREATE TABLE "nmXs".t (c_x int PRIMARY KEY, c_fk int REFERENCES "nm_s".t (c_underscore));
