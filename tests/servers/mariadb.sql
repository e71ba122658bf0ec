-- Catalog of the tests against MariaDB, loaded by the test account (which may use only databases
-- whose names begin with "udml"). It covers several databases, names with blanks, quotes, braces
-- and non-ASCII letters, composite, cross-database and self-referencing foreign keys, views,
-- comments and the common column types, unsigned integers included. Loading it again rebuilds
-- everything from scratch.
SET NAMES utf8mb4;
SET foreign_key_checks = 0;
DROP DATABASE IF EXISTS udml_hr;
DROP DATABASE IF EXISTS udml_shop;
DROP DATABASE IF EXISTS `udml Lager {Größe}`;
DROP DATABASE IF EXISTS udml_empty;
SET foreign_key_checks = 1;

CREATE DATABASE udml_hr CHARACTER SET utf8mb4 COLLATE utf8mb4_bin;
CREATE DATABASE udml_shop CHARACTER SET utf8mb4 COLLATE utf8mb4_bin;
CREATE DATABASE `udml Lager {Größe}` CHARACTER SET utf8mb4 COLLATE utf8mb4_bin;
-- A database without tables still gets its catalog statement.
CREATE DATABASE udml_empty CHARACTER SET utf8mb4 COLLATE utf8mb4_bin;

CREATE TABLE udml_hr.dept (
  id INT NOT NULL,
  name VARCHAR(60) NOT NULL,
  PRIMARY KEY (id)
) ENGINE=InnoDB;

-- manager_id refers to the table itself: the generator writes nothing for that key.
CREATE TABLE udml_hr.employee (
  id INT NOT NULL,
  dept_id INT NULL,
  manager_id INT NULL,
  `Name` VARCHAR(80) NOT NULL,
  PRIMARY KEY (id),
  CONSTRAINT employee_dept_fk FOREIGN KEY (dept_id) REFERENCES udml_hr.dept (id),
  CONSTRAINT employee_manager_fk FOREIGN KEY (manager_id) REFERENCES udml_hr.employee (id)
) ENGINE=InnoDB COMMENT='Mitarbeiter {intern}';

CREATE TABLE udml_shop.customer (
  id INT UNSIGNED NOT NULL,
  name VARCHAR(80) NOT NULL,
  `Größe` DECIMAL(5,1) NULL COMMENT 'in m²',
  PRIMARY KEY (id)
) ENGINE=InnoDB COMMENT='Kunden mit Backslash \\ und {Klammern}';

-- Composite key; the clerk is in another database.
CREATE TABLE udml_shop.orders (
  region CHAR(2) NOT NULL,
  order_no INT NOT NULL,
  customer_id INT UNSIGNED NOT NULL,
  clerk_id INT NULL,
  ordered_on DATE NOT NULL,
  PRIMARY KEY (region, order_no),
  CONSTRAINT orders_customer_fk FOREIGN KEY (customer_id) REFERENCES udml_shop.customer (id),
  CONSTRAINT orders_clerk_fk FOREIGN KEY (clerk_id) REFERENCES udml_hr.employee (id)
) ENGINE=InnoDB;

CREATE TABLE udml_shop.`Order "Lines"` (
  region CHAR(2) NOT NULL,
  order_no INT NOT NULL,
  `line no` SMALLINT UNSIGNED NOT NULL,
  quantity DECIMAL(10,3) NOT NULL,
  PRIMARY KEY (region, order_no, `line no`),
  CONSTRAINT `FK Lines {Order}` FOREIGN KEY (region, order_no) REFERENCES udml_shop.orders (region, order_no)
) ENGINE=InnoDB COMMENT='Positionen "quoted"';

CREATE TABLE udml_shop.`Kunden {alt}` (
  `Kunden-Nr` INT NOT NULL,
  `Straße` TEXT NULL,
  PRIMARY KEY (`Kunden-Nr`)
) ENGINE=InnoDB;

CREATE VIEW udml_shop.order_summary AS
  SELECT o.region, o.order_no, c.name AS customer, COUNT(l.`line no`) AS line_count
  FROM udml_shop.orders o
  JOIN udml_shop.customer c ON c.id = o.customer_id
  LEFT JOIN udml_shop.`Order "Lines"` l ON l.region = o.region AND l.order_no = o.order_no
  GROUP BY o.region, o.order_no, c.name;

-- Every common column type, in a database whose name has a blank, braces and non-ASCII letters.
CREATE TABLE `udml Lager {Größe}`.`Artikel` (
  id BIGINT UNSIGNED NOT NULL,
  winzig TINYINT NULL,
  winzig_u TINYINT UNSIGNED NULL,
  kurz SMALLINT NULL,
  kurz_u SMALLINT UNSIGNED NULL,
  mittel MEDIUMINT NULL,
  menge INT NULL,
  menge_u INT UNSIGNED NULL,
  gross BIGINT NULL,
  preis DECIMAL(12,2) NULL COMMENT 'Preis in {EUR}',
  faktor FLOAT NULL,
  genau DOUBLE NULL,
  geliefert DATE NULL,
  uhrzeit TIME NULL,
  gebucht DATETIME NULL,
  gestempelt TIMESTAMP NULL,
  code CHAR(3) NULL,
  bezeichnung VARCHAR(40) NULL,
  langtext TEXT NULL,
  bild BLOB NULL,
  roh VARBINARY(16) NULL,
  fest BINARY(4) NULL,
  aktiv BOOLEAN NULL,
  bit_flag BIT(1) NULL,
  kunde_id INT UNSIGNED NULL,
  PRIMARY KEY (id),
  CONSTRAINT `Artikel → Kunde` FOREIGN KEY (kunde_id) REFERENCES udml_shop.customer (id)
) ENGINE=InnoDB;
