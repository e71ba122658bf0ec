-- A small sales model: the embedded sample data source of udmlgen and of the ODBC import tests.
-- Built into an SQLite database by scripts/sample-db.sh.
PRAGMA foreign_keys = ON;

CREATE TABLE customers (
    customer_id   INTEGER       NOT NULL PRIMARY KEY,
    name          VARCHAR(100)  NOT NULL,
    email         VARCHAR(254),
    country_code  CHAR(2)       NOT NULL,
    notes         TEXT,
    created_at    TIMESTAMP     NOT NULL
);

CREATE TABLE employees (
    employee_id   INTEGER       NOT NULL PRIMARY KEY,
    full_name     VARCHAR(80)   NOT NULL,
    manager_id    INTEGER       REFERENCES employees (employee_id),
    hire_date     DATE          NOT NULL,
    salary        DECIMAL(10,2),
    photo         BLOB
);

CREATE TABLE products (
    product_id    INTEGER       NOT NULL PRIMARY KEY,
    sku           VARCHAR(20)   NOT NULL UNIQUE,
    name          VARCHAR(120)  NOT NULL,
    unit_price    NUMERIC(10,2) NOT NULL,
    weight_kg     REAL,
    discontinued  SMALLINT      NOT NULL DEFAULT 0,
    image         BLOB
);

CREATE TABLE orders (
    order_id      INTEGER       NOT NULL PRIMARY KEY,
    customer_id   INTEGER       NOT NULL REFERENCES customers (customer_id),
    employee_id   INTEGER       REFERENCES employees (employee_id),
    order_date    DATE          NOT NULL,
    shipped_at    TIMESTAMP,
    status        VARCHAR(12)   NOT NULL DEFAULT 'open'
);

CREATE TABLE order_lines (
    order_id      INTEGER       NOT NULL REFERENCES orders (order_id) ON DELETE CASCADE,
    line_no       INTEGER       NOT NULL,
    product_id    INTEGER       NOT NULL REFERENCES products (product_id),
    quantity      INTEGER       NOT NULL,
    unit_price    NUMERIC(10,2) NOT NULL,
    discount      REAL,
    PRIMARY KEY (order_id, line_no)
);

-- A shipment covers one order line: the composite foreign key of the model.
CREATE TABLE shipments (
    shipment_id   INTEGER       NOT NULL PRIMARY KEY,
    order_id      INTEGER       NOT NULL,
    line_no       INTEGER       NOT NULL,
    shipped_on    DATE,
    carrier       VARCHAR(40),
    CONSTRAINT fk_shipments_order_line FOREIGN KEY (order_id, line_no)
        REFERENCES order_lines (order_id, line_no)
);

CREATE VIEW order_totals AS
    SELECT o.order_id, o.customer_id, SUM(l.quantity * l.unit_price) AS total
    FROM orders o JOIN order_lines l ON l.order_id = o.order_id
    GROUP BY o.order_id, o.customer_id;

INSERT INTO customers VALUES
    (1, 'Ada Lovelace', 'ada@example.com', 'GB', NULL, '2023-01-15 09:30:00'),
    (2, 'Grace Hopper', NULL, 'US', 'prefers invoices by post', '2023-02-01 14:00:00');
INSERT INTO employees VALUES
    (1, 'Maria Rossi', NULL, '2019-03-01', 7200.00, NULL),
    (2, 'Jan de Vries', 1, '2021-06-15', 4850.50, NULL);
INSERT INTO products VALUES
    (1, 'KB-101', 'Mechanical keyboard', 89.90, 1.2, 0, NULL),
    (2, 'MS-202', 'Wireless mouse', 24.50, 0.1, 0, NULL);
INSERT INTO orders VALUES
    (1, 1, 2, '2024-04-02', '2024-04-03 10:15:00', 'shipped'),
    (2, 2, NULL, '2024-04-05', NULL, 'open');
INSERT INTO order_lines VALUES
    (1, 1, 1, 1, 89.90, NULL),
    (1, 2, 2, 2, 24.50, 0.1),
    (2, 1, 2, 1, 24.50, NULL);
INSERT INTO shipments VALUES
    (1, 1, 1, '2024-04-03', 'DHL'),
    (2, 1, 2, '2024-04-03', 'DHL');
