-- One column of each type whose mapping the ODBC source refines (and some it keeps), for the
-- table-driven type test.
DROP SCHEMA IF EXISTS udml_types CASCADE;
CREATE SCHEMA udml_types;
CREATE TYPE udml_types.mood AS ENUM ('low', 'high');
CREATE DOMAIN udml_types.flag AS boolean;
CREATE DOMAIN udml_types.label AS varchar(20);
CREATE TABLE udml_types.every_type (
  c_bool boolean, c_flag udml_types.flag, c_label udml_types.label, c_json json, c_jsonb jsonb, c_int_array integer[], c_text_array text[],
  c_int4range int4range, c_tsrange tstzrange, c_mood udml_types.mood, c_text text, c_varchar varchar, c_varchar_40 varchar(40),
  c_varchar_1000 varchar(1000), c_char_3 char(3), c_uuid uuid, c_time time, c_time_3 time(3), c_timetz timetz,
  c_timestamp_0 timestamp(0), c_timestamp_3 timestamp(3), c_timestamptz timestamptz, c_interval interval, c_date date,
  c_numeric numeric, c_numeric_10_2 numeric(10,2), c_money money, c_real real, c_double double precision,
  c_smallint smallint, c_bigint bigint, c_bytea bytea, c_xml xml, c_tsvector tsvector, c_inet inet, c_cidr cidr,
  c_macaddr macaddr, c_bit_1 bit(1), c_bit_8 bit(8), c_varbit varbit(16), c_point point, c_name name, c_oid oid, c_char "char"
);
