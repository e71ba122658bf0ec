-- One column of each type whose mapping the ODBC source refines (and some it keeps), for the
-- table-driven type test.
CREATE TABLE every_type (
  c_integer INTEGER, c_int INT, c_bigint BIGINT, c_smallint SMALLINT, c_tinyint TINYINT, c_text TEXT, c_varchar_40 VARCHAR(40),
  c_char_3 CHAR(3), c_decimal_10_5 DECIMAL(10,5), c_numeric_8_3 NUMERIC(8,3), c_numeric NUMERIC, c_real REAL, c_double DOUBLE,
  c_float FLOAT, c_blob BLOB, c_date DATE, c_time TIME, c_timestamp TIMESTAMP, c_datetime DATETIME, c_boolean BOOLEAN,
  c_untyped, c_json JSON, c_uuid UUID, c_clob CLOB, c_nvarchar_9 NVARCHAR(9)
);
