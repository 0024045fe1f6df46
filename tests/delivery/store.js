// SPDX-License-Identifier: Apache-2.0
// usage: node store.js FOLDER
// An object store with one bucket, `bucket`, that the test controls. It prints its port. In FOLDER:
//   objects    what is stored
//   writes     a line "PUT key" or "DELETE key" for each write that is done
//   allowed    how many writes may be done in all; without this file any number
//   at-limit   `hold`: a further write waits until it is allowed; `refuse`: it is answered with 403
//   held       exists once a write has to wait and no other one is under way
'use strict';
const fs = require('fs');
const http = require('http');
const path = require('path');
const S3rver = require('@20minutes/s3rver');

const folder = process.argv[2];
const file = (name) => path.join(folder, name);
const store = new S3rver({
  directory: file('objects'),
  silent: true,
  configureBuckets: [{ name: 'bucket' }],
});
let begun = 0;
let underWay = 0;

const text = (name, otherwise) =>
  fs.existsSync(file(name)) ? fs.readFileSync(file(name), 'utf8').trim() : otherwise;
const isAllowed = () => begun < Number(text('allowed', Infinity));
const isWrite = (request) => !['GET', 'HEAD'].includes(request.method);
const keysOf = (xml) => [...xml.matchAll(/<Key>([^<]*)<\/Key>/g)].map((match) => match[1]);

function log(request, body) {
  const key = decodeURIComponent(request.url.split('?')[0]).replace('/bucket/', '');
  const lines =
    request.method === 'POST'
      ? keysOf(body).map((each) => `DELETE ${each}\n`)
      : [`${request.method} ${key}\n`];
  fs.appendFileSync(file('writes'), lines.join(''));
}

function refuse(request, response) {
  request.resume();
  response.writeHead(403, { 'Content-Type': 'application/xml' });
  response.end('<Error><Code>AccessDenied</Code><Message>refused</Message></Error>');
}

function write(request, response, handle) {
  if (!isAllowed()) {
    if (text('at-limit', 'hold') === 'refuse') {
      return refuse(request, response);
    }
    if (underWay === 0) {
      fs.writeFileSync(file('held'), '');
    }
    return setTimeout(() => request.socket.destroyed || write(request, response, handle), 50);
  }
  ++begun;
  ++underWay;
  let body = '';
  if (request.method === 'POST') {
    request.on('data', (part) => (body += part));
  }
  const end = response.end;
  response.end = (...rest) => {
    --underWay;
    if (response.statusCode < 300) {
      log(request, body);
    } else {
      --begun;
    }
    return end.apply(response, rest);
  };
  return handle(request, response);
}

store
  .configureBuckets()
  .then(() => {
    const handle = store.callback();
    const server = http.createServer((request, response) =>
      isWrite(request) ? write(request, response, handle) : handle(request, response),
    );
    server.listen(0, '127.0.0.1', () => console.log(server.address().port));
  })
  .catch((error) => {
    console.error(error);
    process.exit(1);
  });
