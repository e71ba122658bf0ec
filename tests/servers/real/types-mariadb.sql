-- One column of each type whose mapping the ODBC source refines (and some it keeps), for the
-- table-driven type test.
CREATE OR REPLACE DATABASE udml_types;
USE udml_types;
CREATE TABLE every_type (
  c_bit_1 BIT(1), c_bit_8 BIT(8), c_bool BOOLEAN, c_tinyint_1 TINYINT(1), c_uuid UUID, c_inet6 INET6, c_inet4 INET4,
  c_datetime DATETIME, c_datetime_3 DATETIME(3), c_datetime_6 DATETIME(6), c_timestamp_2 TIMESTAMP(2) NULL, c_time_4 TIME(4), c_time TIME,
  c_date DATE, c_year YEAR, c_longtext LONGTEXT, c_json JSON, c_mediumtext MEDIUMTEXT, c_text TEXT, c_tinytext TINYTEXT,
  c_varchar_40 VARCHAR(40), c_char_3 CHAR(3), c_enum ENUM('a','bc'), c_set SET('x','yz'), c_longblob LONGBLOB, c_blob BLOB,
  c_binary_4 BINARY(4), c_varbinary_9 VARBINARY(9), c_decimal_10_2 DECIMAL(10,2), c_float FLOAT, c_double DOUBLE,
  c_bigint BIGINT, c_int_u INT UNSIGNED, c_mediumint MEDIUMINT, c_smallint SMALLINT, c_geometry GEOMETRY
);
