"""Peer of the read_table benchmarks: RFC_READ_TABLE over the SOAP service with
requests and lxml alone, paged like the veltrane command, rows as typed dicts,
written to standard output as JSON.
usage: read_table_requests.py URL USER PASSWORD TABLE ROWS [PAGE_SIZE]"""
import json
import sys
from datetime import date
from decimal import Decimal

import requests
from lxml import etree

ENVELOPE = ('<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/"><SOAP-ENV:Body>'
            '<rfc:RFC_READ_TABLE xmlns:rfc="urn:sap-com:document:sap:rfc:functions"><QUERY_TABLE>{table}</QUERY_TABLE>'
            '<DELIMITER> </DELIMITER><ROWCOUNT>{count}</ROWCOUNT><ROWSKIPS>{skip}</ROWSKIPS><OPTIONS/><FIELDS/><DATA/>'
            '</rfc:RFC_READ_TABLE></SOAP-ENV:Body></SOAP-ENV:Envelope>')
CONVERT = {"D": lambda t: date(int(t[:4]), int(t[4:6]), int(t[6:8])) if t.strip("0 ") else None,
           "P": lambda t: Decimal(t or "0"), "I": lambda t: int(t or 0), "F": lambda t: float(t or 0)}


def read_table(url, user, password, table, rows, page_size=10000):
    http = requests.Session()
    http.auth = (user, password)
    out = []
    while len(out) < rows:
        count = min(page_size, rows - len(out))
        body = ENVELOPE.format(table=table, count=count, skip=len(out)).encode()
        answer = http.post(f"{url}/sap/bc/soap/rfc?sap-client=001", data=body,
                           headers={"Content-Type": "text/xml; charset=utf-8", "SOAPAction": ""})
        answer.raise_for_status()
        doc = etree.fromstring(answer.content)
        fields = [(f.findtext("FIELDNAME"), int(f.findtext("OFFSET")), int(f.findtext("LENGTH")),
                   CONVERT.get(f.findtext("TYPE"), str)) for f in doc.iterfind(".//FIELDS/item")]
        page = [wa.text or "" for wa in doc.iterfind(".//DATA/item/WA")]
        out += [{name: convert(text[o:o + n].strip()) for name, o, n, convert in fields} for text in page]
        if len(page) < count:
            break
    return out


if __name__ == "__main__":
    url, user, password, table, rows = sys.argv[1:6]
    rows = read_table(url, user, password, table, int(rows), *map(int, sys.argv[6:7]))
    json.dump({"table": table, "rows": rows}, sys.stdout, default=str)
    sys.stdout.write("\n")
