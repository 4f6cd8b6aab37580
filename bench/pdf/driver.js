// The peer of bench/pdf.sh: pdfkit lays out the content that pdf_bench
// wrote (the same records, texts, colours, thumbnails, charts and tag rows
// as Lumeo's report, in the same places and faces) RUNS times in one
// process and prints the median time and the size of the last document.
'use strict';
const fs = require('fs');
const path = require('path');
const PDFDocument = require('pdfkit');

const [dir, fontsJson, runsArg] = process.argv.slice(2);
const content = JSON.parse(fs.readFileSync(path.join(dir, 'content.json'), 'utf8'));
const fonts = JSON.parse(fontsJson);
const runs = Number(runsArg || 7);
// The same image files as the report: the bands as JPEG, the icon as PNG.
const res = (name) => {
  const jpeg = path.join(content.resources, name + '@2x.jpg');
  return fs.existsSync(jpeg) ? jpeg : path.join(content.resources, name + '@2x.png');
};

function build() {
  return new Promise((resolve) => {
    const doc = new PDFDocument({ size: [612, 792], margins: { top: 120, bottom: 103, left: 250, right: 50 } });
    for (const [name, file] of Object.entries(fonts)) doc.registerFont(name, file);
    const chunks = [];
    doc.on('data', (c) => chunks.push(c));
    doc.on('end', () => resolve(Buffer.concat(chunks)));

    // Title page.
    doc.image(res('title7'), 0, 315, { width: 612, height: 113 });
    doc.image(res('icon7'), 100, 339, { height: 65 });
    doc.font('light').fontSize(24).fillColor('#404040');
    doc.text(content.first, 38, 508, { width: 250, align: 'right', lineBreak: false });
    doc.text('\u2014', 288, 508, { width: 36, align: 'center', lineBreak: false });
    doc.text(content.last, 324, 508, { width: 250, align: 'left', lineBreak: false });

    const header = (image) => {
      doc.addPage();
      doc.image(res(image), 0, 0, { width: 612, height: 83 });
      doc.image(res('icon7'), 50, 24, { height: 37 });
    };
    header('titleRecords7');
    let y = 85;
    let first = true;
    for (const r of content.records) {
      doc.font('regular').fontSize(12);
      const textH = r.comment ? doc.heightOfString(r.comment, { width: 312, align: 'justify' }) : 0;
      const thumbH = r.thumb ? 89 : 0;
      const h = Math.max(Math.min(textH, 604) + 35, thumbH);
      if (y + h + (first ? 0 : 30) > 689) {
        header('titleRecords7');
        y = 85;
        first = true;
      }
      if (!first) {
        doc.rect(50, y + 14, 512, 0.25).fill('#cccccc');
        y += 30;
      }
      doc.font('thin').fontSize(14).fillColor('black').text(r.date, 250, y + 6, { width: 312, lineBreak: false });
      if (r.thumb) {
        doc.save();
        doc.roundedRect(50, y + 3, 89, 89, 4).clip();
        doc.image(r.thumb, 50, y + 3, { width: 89, height: 89 });
        doc.restore();
      }
      doc.font('bold').fontSize(32).fillColor(r.color).text(String(r.level), 160, y, { width: 80, align: 'center', lineBreak: false });
      doc.fontSize(14).text(r.levelText, 160, y + 34, { width: 80, align: 'center', lineBreak: false });
      // A long comment flows over the next pages by itself.
      doc.font('regular').fontSize(12).fillColor('black').text(r.comment, 250, y + 35, { width: 312, align: 'justify' });
      if (textH > 604) {
        y = doc.y;
      } else {
        y += h;
      }
      first = false;
    }

    // Summary page.
    header('titleSummary7');
    const headingY = [125, 270, 420];
    const textY = [160, 305, 455];
    content.charts.forEach((chart, i) => {
      const cardY = headingY[i] - 12;
      const gradient = doc.linearGradient(250, cardY, 250, cardY + 125);
      gradient.stop(0, '#e93700').stop(0.5, '#bdb201').stop(1, '#85866e');
      doc.save();
      doc.roundedRect(250, cardY, 312, 125, 4).clip();
      doc.rect(250, cardY, 312, 125).fill(gradient);
      doc.image(chart.png, 250, cardY, { width: 312, height: 125 });
      doc.restore();
      doc.font('bold').fontSize(16).fillColor('black').text(chart.title, 50, headingY[i], { width: 180, lineBreak: false });
      doc.font('regular').fontSize(8).fillColor('#333333').text(chart.text.replace(/\n/g, ' '), 50, textY[i], { width: 180 });
    });
    doc.font('regular').fontSize(8).fillColor('#bcbf96');
    doc.text(content.first, 254, 240, { width: 304, lineBreak: false });
    doc.text('Today', 254, 240, { width: 304, align: 'right', lineBreak: false });
    doc.rect(100, 550, 412, 0.25).fill('white');
    [['Top positive', content.positive, 100], ['Top negative', content.negative, 330]].forEach(([title, rows, x]) => {
      doc.font('bold').fontSize(16).fillColor('black').text(title, x, 568, { width: 170, lineBreak: false });
      rows.slice(0, 5).forEach((row, i) => {
        const ry = 600 + 28 * i;
        doc.rect(x, ry, 170, 27).fill(row.color);
        doc.font('bold').fontSize(12).fillColor('white');
        doc.text(row.name, x + 6, ry + 7, { width: 120, lineBreak: false });
        doc.text(row.average.toFixed(1), x + 6, ry + 7, { width: 158, align: 'right', lineBreak: false });
      });
    });
    doc.end();
  });
}

(async () => {
  const times = [];
  let data = null;
  for (let i = 0; i < runs; i++) {
    const start = process.hrtime.bigint();
    data = await build();
    times.push(Number(process.hrtime.bigint() - start) / 1e6);
  }
  times.sort((a, b) => a - b);
  fs.writeFileSync(path.join(dir, 'peer.pdf'), data);
  console.log('peer_ms ' + times[Math.floor(times.length / 2)]);
  console.log('peer_bytes ' + data.length);
})();
