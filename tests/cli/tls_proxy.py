"""A TLS front for the HTTPS tests of the command: accepts TLS on a free
loopback port with the given certificate and forwards each connection to a
plain TCP port (veltrane-sim's SOAP front). Prints "port=N" when ready.

    python3 tls_proxy.py CERT KEY TARGET_PORT
"""
import socket
import ssl
import sys
import threading


def pump(source, target):
    try:
        while True:
            data = source.recv(65536)
            if not data:
                break
            target.sendall(data)
    except OSError:
        pass
    finally:
        for s in (source, target):
            try:
                s.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass


def serve(client, target_port):
    try:
        upstream = socket.create_connection(("127.0.0.1", target_port))
    except OSError:
        client.close()
        return
    threading.Thread(target=pump, args=(client, upstream), daemon=True).start()
    pump(upstream, client)


def main():
    cert, key, target_port = sys.argv[1], sys.argv[2], int(sys.argv[3])
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    print(f"port={listener.getsockname()[1]}", flush=True)
    while True:
        raw, _ = listener.accept()
        try:
            client = context.wrap_socket(raw, server_side=True)
        except (ssl.SSLError, OSError):
            raw.close()
            continue
        threading.Thread(target=serve, args=(client, target_port), daemon=True).start()


if __name__ == "__main__":
    main()
