-- Catalog of the tests against PostgreSQL, loaded by the test account into its own database.
-- It covers several schemas, names with blanks, quotes, braces and non-ASCII letters, composite,
-- cross-schema and self-referencing foreign keys, views, comments and the common column types.
-- Loading it again rebuilds everything from scratch.
\set ON_ERROR_STOP on
SET client_min_messages = warning;
SET client_encoding = 'UTF8';

DROP SCHEMA IF EXISTS public CASCADE;
DROP SCHEMA IF EXISTS sales CASCADE;
DROP SCHEMA IF EXISTS hr CASCADE;
DROP SCHEMA IF EXISTS "Lager Größe" CASCADE;
DROP SCHEMA IF EXISTS "leer {ohne Tabellen}" CASCADE;

CREATE SCHEMA hr;
CREATE SCHEMA sales;
CREATE SCHEMA "Lager Größe";
-- A schema without tables still gets its statement.
CREATE SCHEMA "leer {ohne Tabellen}";
COMMENT ON SCHEMA sales IS 'Verkauf';

CREATE TABLE hr.dept (
  id integer NOT NULL,
  name varchar(60) NOT NULL,
  CONSTRAINT dept_pk PRIMARY KEY (id)
);

-- manager_id refers to the table itself: the generator writes nothing for that key.
CREATE TABLE hr.employee (
  id integer NOT NULL,
  dept_id integer,
  manager_id integer,
  "Name" varchar(80) NOT NULL,
  CONSTRAINT employee_pk PRIMARY KEY (id),
  CONSTRAINT employee_dept_fk FOREIGN KEY (dept_id) REFERENCES hr.dept (id),
  CONSTRAINT employee_manager_fk FOREIGN KEY (manager_id) REFERENCES hr.employee (id)
);
COMMENT ON TABLE hr.employee IS 'Mitarbeiter {intern}';
COMMENT ON COLUMN hr.employee.manager_id IS 'Vorgesetzte(r), siehe id';

CREATE TABLE sales.customer (
  id integer NOT NULL,
  name varchar(80) NOT NULL,
  "Größe" numeric(5,1),
  CONSTRAINT "PK Customer" PRIMARY KEY (id)
);
COMMENT ON TABLE sales.customer IS 'Kunden mit Backslash \ und {Klammern}';
COMMENT ON COLUMN sales.customer."Größe" IS 'in m²';

-- Composite key; the clerk is in another schema.
CREATE TABLE sales.orders (
  region char(2) NOT NULL,
  order_no integer NOT NULL,
  customer_id integer NOT NULL,
  clerk_id integer,
  ordered_on date NOT NULL,
  CONSTRAINT orders_pk PRIMARY KEY (region, order_no),
  CONSTRAINT orders_customer_fk FOREIGN KEY (customer_id) REFERENCES sales.customer (id),
  CONSTRAINT orders_clerk_fk FOREIGN KEY (clerk_id) REFERENCES hr.employee (id)
);

CREATE TABLE sales."Order ""Lines""" (
  region char(2) NOT NULL,
  order_no integer NOT NULL,
  "line no" smallint NOT NULL,
  quantity numeric(10,3) NOT NULL,
  CONSTRAINT "PK ""Lines""" PRIMARY KEY (region, order_no, "line no"),
  CONSTRAINT "FK Lines {Order}" FOREIGN KEY (region, order_no) REFERENCES sales.orders (region, order_no)
);
COMMENT ON TABLE sales."Order ""Lines""" IS 'Positionen "quoted"';

CREATE TABLE sales."Kunden {alt}" (
  "Kunden-Nr" integer NOT NULL,
  "Straße" text,
  CONSTRAINT "Kunden {alt} pk" PRIMARY KEY ("Kunden-Nr")
);

-- A table without columns: no column list and no key.
CREATE TABLE sales.leer ();

CREATE VIEW sales.order_summary AS
  SELECT o.region, o.order_no, c.name AS customer, count(l."line no") AS lines
  FROM sales.orders o
  JOIN sales.customer c ON c.id = o.customer_id
  LEFT JOIN sales."Order ""Lines""" l ON l.region = o.region AND l.order_no = o.order_no
  GROUP BY o.region, o.order_no, c.name;
COMMENT ON VIEW sales.order_summary IS 'Bestellungen mit Zeilenzahl';

CREATE MATERIALIZED VIEW sales.top_customers AS
  SELECT c.id, c.name FROM sales.customer c WHERE c."Größe" > 10;

-- Every common column type, in a schema whose name has a blank and non-ASCII letters.
CREATE TABLE "Lager Größe"."Artikel" (
  id bigint NOT NULL,
  kurz smallint,
  menge integer,
  preis numeric(12,2),
  gewicht decimal(8,3),
  faktor real,
  genau double precision,
  geliefert date,
  uhrzeit time,
  gebucht timestamp,
  gebucht_tz timestamp with time zone,
  code char(3),
  bezeichnung varchar(40),
  langtext text,
  bild bytea,
  aktiv boolean,
  kennung uuid,
  dauer interval,
  kunde_id integer,
  CONSTRAINT artikel_pk PRIMARY KEY (id),
  CONSTRAINT "Artikel → Kunde" FOREIGN KEY (kunde_id) REFERENCES sales.customer (id)
);
COMMENT ON COLUMN "Lager Größe"."Artikel".preis IS 'Preis in {EUR}';
